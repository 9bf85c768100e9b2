// A user at the program's dialogs, for GUI tests: typing into fields and
// answering modal dialogs through wxWidgets' testing hooks.
#pragma once

#include <gtest/gtest.h>

#include <wx/button.h>
#include <wx/msgdlg.h>
#include <wx/testing.h>
#include <wx/textctrl.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "gui_enter_string.h"

inline wxTextCtrl& textField(wxWindow& dialog, wxWindowID id) {
    auto* field = dynamic_cast<wxTextCtrl*>(dialog.FindWindow(id));
    if (!field) throw std::runtime_error("no text field with id " + std::to_string(id));
    return *field;
}

/// Replaces the text as typing would, with the text-changed event it causes.
inline void type(wxWindow& dialog, wxWindowID id, wxString const& text) { textField(dialog, id).SetValue(text); }

inline bool continueEnabled(wxWindow& dialog) { return dialog.FindWindow(wxID_OK)->IsEnabled(); }

/// A user who types into a modal GuiEnterString and presses Continue, or
/// Cancel when Continue is disabled.
class ExpectEnterString : public wxExpectModalBase<GuiEnterString, ExpectEnterString> {
public:
    ExpectEnterString(wxString entry, wxString confirmation)
        : entry_(std::move(entry)), confirmation_(std::move(confirmation)) {}

protected:
    int OnInvoked(GuiEnterString* dialog) const override {
        type(*dialog, GuiEnterString::kEntryId, entry_);
        if (dialog->FindWindow(GuiEnterString::kConfirmationId))
            type(*dialog, GuiEnterString::kConfirmationId, confirmation_);
        return continueEnabled(*dialog) ? wxID_OK : wxID_CANCEL;
    }

private:
    wxString entry_;
    wxString confirmation_;
};

/// A user who reads a message box, which must say `message` under `caption`,
/// and presses `button`.
class ExpectMessage : public wxExpectModalBase<wxMessageDialog, ExpectMessage> {
public:
    ExpectMessage(wxString caption, wxString message, int button = wxID_OK)
        : caption_(std::move(caption)), message_(std::move(message)), button_(button) {}

protected:
    int OnInvoked(wxMessageDialog* dialog) const override {
        EXPECT_EQ(dialog->GetTitle().utf8_string(), caption_.utf8_string());
        EXPECT_EQ(dialog->GetMessage().utf8_string(), message_.utf8_string());
        return button_;
    }
    wxString GetDefaultDescription() const override { return "message box \"" + message_ + "\""; }

private:
    wxString caption_;
    wxString message_;
    int button_;
};
