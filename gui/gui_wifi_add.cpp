#include "gui_wifi_add.h"

#include <wx/checkbox.h>
#include <wx/sizer.h>
#include <wx/statbox.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <string>

#include "dialog_footer.h"
#include "wifi_text.h"

namespace {

// Wide enough for a 32-character network name.
constexpr int kFieldWidth = 260;

}  // namespace

GuiWifiAdd::GuiWifiAdd(wxWindow* parent) : wxDialog(parent, wxID_ANY, "Add WiFi Network") {
    wxSize const fieldSize(FromDIP(kFieldWidth), -1);
    auto* fields = new wxFlexGridSizer(2, wxSize(FromDIP(8), FromDIP(6)));
    fields->AddGrowableCol(1);
    fields->Add(new wxStaticText(this, wxID_ANY, "Network Name"), wxSizerFlags().CenterVertical());
    name_ = new wxTextCtrl(this, kNameId, wxString(), wxDefaultPosition, fieldSize);
    fields->Add(name_, wxSizerFlags().Expand());
    fields->Add(new wxStaticText(this, wxID_ANY, "Password"), wxSizerFlags().CenterVertical());
    password_ = new wxTextCtrl(this, kPasswordId, wxString(), wxDefaultPosition, fieldSize, wxTE_PASSWORD);
    fields->Add(password_, wxSizerFlags().Expand());

    auto* options = new wxStaticBoxSizer(wxVERTICAL, this, "Network Options");
    metered_ = new wxCheckBox(options->GetStaticBox(), kMeteredId,
                              "Is this network metered ? (mobile hotspot or limited data)");
    options->Add(metered_, wxSizerFlags().Border());

    auto* column = new wxBoxSizer(wxVERTICAL);
    column->Add(fields, wxSizerFlags().Expand().Border());
    column->Add(options, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM));
    message_ = addDialogFooter(*this, column);
    name_->Bind(wxEVT_TEXT, [this](wxCommandEvent&) { validate(); });
    password_->Bind(wxEVT_TEXT, [this](wxCommandEvent&) { validate(); });
    name_->SetFocus();
    validate();
}

Zelmor::WifiNetwork GuiWifiAdd::network() const {
    return wifiNetworkToAdd(name_->GetValue().utf8_string(), password_->GetValue().utf8_string(), metered_->GetValue());
}

void GuiWifiAdd::validate() {
    std::string const problem =
        wifiNetworkProblem(name_->GetValue().utf8_string(), password_->GetValue().utf8_string());
    message_->SetLabelText(wxString::FromUTF8(problem));
    FindWindow(wxID_OK)->Enable(problem.empty());
    // Grows for a longer message but never shrinks under the typing.
    wxSize size = GetSize();
    size.IncTo(GetBestSize());
    SetSize(size);
    Layout();
}
