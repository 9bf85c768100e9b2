#pragma once

#include <wx/dialog.h>

#include <cstddef>
#include <string>

class wxStaticText;
class wxTextCtrl;

/// Asks for one line of text, such as a name or a password, optionally typed
/// twice. Continue is enabled only while the text is acceptable; the reason
/// it is not is shown under the fields.
class GuiEnterString : public wxDialog {
public:
    /// Window id of the entry field.
    static constexpr wxWindowID kEntryId = 6000;
    /// Window id of the confirmation field, present only when confirming.
    static constexpr wxWindowID kConfirmationId = 6001;

    /// `password` hides what is typed; `confirm` adds a second field whose
    /// text must equal the first. The prompts start empty and the length is
    /// unlimited until the caller sets them.
    GuiEnterString(wxWindow* parent, wxWindowID id, wxString const& title, bool password, bool confirm);

    /// The text shown above the entry field.
    void setPrompt(wxString const& text);

    /// The text shown above the confirmation field; ignored without one.
    void setConfirmationPrompt(wxString const& text);

    /// Most characters (Unicode code points) the entry may have.
    void setMaxLength(size_t length);

    /// The entered text as UTF-8.
    std::string value() const;

    /// The entered text.
    wxString wxValue() const;

private:
    void validate();
    void fitContent();

    wxStaticText* prompt_;
    wxTextCtrl* entry_;
    wxStaticText* confirmationPrompt_ = nullptr;
    wxTextCtrl* confirmation_ = nullptr;
    wxStaticText* message_;
    size_t maxLength_;
};
