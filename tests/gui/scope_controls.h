// What a user does to a scope display: its buttons, the mouse wheel, and the
// file dialogs behind "Save Image" and "Export Data".
#pragma once

#include <gtest/gtest.h>

#include <wx/filedlg.h>
#include <wx/modalhook.h>
#include <wx/testing.h>
#include <wx/tglbtn.h>

#include "gui_user.h"
#include "scope_display.h"

/// A user who types `path` into a save dialog and saves. GTK's file chooser
/// takes in a typed folder only from its event loop, so they wait until it
/// reads the path back.
class ExpectSavePath : public wxExpectModalBase<wxFileDialog, ExpectSavePath> {
public:
    explicit ExpectSavePath(wxString path) : path_(std::move(path)) {}

protected:
    int OnInvoked(wxFileDialog* dialog) const override {
        dialog->SetPath(path_);
        EXPECT_TRUE(waitFor([&] { return dialog->GetPath() == path_; }, 5000));
        return wxID_OK;
    }

private:
    wxString path_;
};

/// The button labelled `label` in the display's button panel.
inline wxWindow& scopeButton(ScopeDisplay& display, wxString const& label) {
    for (wxWindow* child : display.buttonPanel()->GetChildren())
        if (child->GetLabel() == label) return *child;
    ADD_FAILURE() << "no button " << label;
    return *display.buttonPanel();
}

/// Presses a button of the panel; a toggle button changes its state.
inline void clickScopeButton(ScopeDisplay& display, wxString const& label) {
    wxWindow& pressed = scopeButton(display, label);
    auto* const toggle = dynamic_cast<wxToggleButton*>(&pressed);
    if (toggle) toggle->SetValue(!toggle->GetValue());
    wxCommandEvent event(toggle ? wxEVT_TOGGLEBUTTON : wxEVT_BUTTON, pressed.GetId());
    event.SetEventObject(&pressed);
    event.SetInt(toggle && toggle->GetValue());
    pressed.HandleWindowEvent(event);
}

/// Turns the wheel by `rotation` (120 a notch, positive away from the user)
/// with the pointer at (x, 100) of the display.
inline void turnWheel(ScopeDisplay& display, int x, int rotation, bool control) {
    wxMouseEvent event(wxEVT_MOUSEWHEEL);
    event.SetEventObject(&display);
    event.m_x = x;
    event.m_y = 100;
    event.m_wheelRotation = rotation;
    event.m_wheelDelta = 120;
    event.SetControlDown(control);
    display.HandleWindowEvent(event);
}
