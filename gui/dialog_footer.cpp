#include "dialog_footer.h"

#include <wx/button.h>
#include <wx/dialog.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

wxStaticText* addDialogFooter(wxDialog& dialog, wxSizer* column) {
    auto* message = new wxStaticText(&dialog, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, 0, "message");
    column->Add(message, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT));
    auto* buttons = new wxStdDialogButtonSizer;
    buttons->AddButton(new wxButton(&dialog, wxID_CANCEL, "Cancel"));
    auto* continueButton = new wxButton(&dialog, wxID_OK, "Continue");
    continueButton->SetDefault();
    buttons->AddButton(continueButton);
    buttons->Realize();
    column->Add(buttons, wxSizerFlags().Expand().Border());
    dialog.SetSizerAndFit(column);
    return message;
}
