#pragma once

#include <functional>

#include <wx/event.h>

class GuiEvent;
wxDECLARE_EVENT(GUI_EVENT_TYPE, GuiEvent);

/// An event that carries work to a window's GUI thread. It stays with the
/// window it was queued to: it does not travel up to the parent windows.
/// Worker threads send it through a WindowHandle (window_handle.h).
class GuiEvent : public wxCommandEvent {
public:
    using Function = std::function<void(GuiEvent const&)>;

    explicit GuiEvent(Function function = {});
    GuiEvent(GuiEvent const&) = default;

    Function const& function() const { return function_; }

    wxEvent* Clone() const override { return new GuiEvent(*this); }

private:
    Function function_;
};
