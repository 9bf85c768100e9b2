#include "gui_enter_string.h"

#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <limits>

#include "dialog_footer.h"
#include "input_validation.h"

namespace {

// Wide enough for a passphrase or a device name without scrolling.
constexpr int kFieldWidth = 300;

}  // namespace

GuiEnterString::GuiEnterString(wxWindow* parent, wxWindowID id, wxString const& title, bool password, bool confirm)
    : wxDialog(parent, id, title), maxLength_(std::numeric_limits<size_t>::max()) {
    long const fieldStyle = password ? wxTE_PASSWORD : 0;
    wxSize const fieldSize(FromDIP(kFieldWidth), -1);
    auto* column = new wxBoxSizer(wxVERTICAL);
    prompt_ = new wxStaticText(this, wxID_ANY, wxString());
    column->Add(prompt_, wxSizerFlags().Border(wxLEFT | wxRIGHT | wxTOP));
    entry_ = new wxTextCtrl(this, kEntryId, wxString(), wxDefaultPosition, fieldSize, fieldStyle);
    column->Add(entry_, wxSizerFlags().Expand().Border());
    if (confirm) {
        confirmationPrompt_ = new wxStaticText(this, wxID_ANY, wxString());
        column->Add(confirmationPrompt_, wxSizerFlags().Border(wxLEFT | wxRIGHT));
        confirmation_ = new wxTextCtrl(this, kConfirmationId, wxString(), wxDefaultPosition, fieldSize, fieldStyle);
        column->Add(confirmation_, wxSizerFlags().Expand().Border());
        confirmation_->Bind(wxEVT_TEXT, [this](wxCommandEvent&) { validate(); });
    }
    message_ = addDialogFooter(*this, column);
    entry_->Bind(wxEVT_TEXT, [this](wxCommandEvent&) { validate(); });
    entry_->SetFocus();
    validate();
}

void GuiEnterString::setPrompt(wxString const& text) {
    prompt_->SetLabel(text);
    fitContent();
}

void GuiEnterString::setConfirmationPrompt(wxString const& text) {
    if (!confirmationPrompt_) return;
    confirmationPrompt_->SetLabel(text);
    fitContent();
}

void GuiEnterString::setMaxLength(size_t length) {
    maxLength_ = length;
    validate();
}

std::string GuiEnterString::value() const { return entry_->GetValue().utf8_string(); }

wxString GuiEnterString::wxValue() const { return entry_->GetValue(); }

void GuiEnterString::validate() {
    std::string const confirmation = confirmation_ ? confirmation_->GetValue().utf8_string() : std::string();
    std::string const problem = enterStringProblem(value(), confirmation, maxLength_, confirmation_ != nullptr);
    message_->SetLabel(wxString::FromUTF8(problem));
    FindWindow(wxID_OK)->Enable(problem.empty());
    fitContent();
}

void GuiEnterString::fitContent() {
    // Grows for a longer prompt or message but never shrinks under the typing.
    wxSize size = GetSize();
    size.IncTo(GetBestSize());
    SetSize(size);
    Layout();
}
