#include "gui_calibrate_dialog.h"

#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <string>

#include "dialog_footer.h"
#include "input_validation.h"

namespace {

// Room for "-2000.000 A" and a little more.
constexpr int kFieldWidth = 140;

}  // namespace

GuiCalibrateDialog::GuiCalibrateDialog(wxWindow* parent, wxWindowID id, wxString const& title)
    : wxDialog(parent, id, title) {
    auto* row = new wxBoxSizer(wxHORIZONTAL);
    row->Add(new wxStaticText(this, wxID_ANY, "Calibration current"), wxSizerFlags().CenterVertical());
    entry_ = new wxTextCtrl(this, kEntryId, wxString(), wxDefaultPosition, wxSize(FromDIP(kFieldWidth), -1));
    row->Add(entry_, wxSizerFlags(1).Border(wxLEFT));
    auto* column = new wxBoxSizer(wxVERTICAL);
    column->Add(row, wxSizerFlags().Expand().Border());
    message_ = addDialogFooter(*this, column);
    entry_->Bind(wxEVT_TEXT, [this](wxCommandEvent&) { validate(); });
    entry_->SetFocus();
    validate();
}

float GuiCalibrateDialog::current() const { return readCalibrationCurrent(entry_->GetValue().utf8_string()).amperes; }

void GuiCalibrateDialog::validate() {
    std::string const problem = readCalibrationCurrent(entry_->GetValue().utf8_string()).problem;
    message_->SetLabel(wxString::FromUTF8(problem));
    FindWindow(wxID_OK)->Enable(problem.empty());
    // Grows for a longer message but never shrinks under the typing.
    wxSize size = GetSize();
    size.IncTo(GetBestSize());
    SetSize(size);
    Layout();
}
