#pragma once

#include <functional>
#include <type_traits>
#include <utility>

#include <wx/event.h>
#include <wx/weakref.h>

class GuiEvent;
wxDECLARE_EVENT(GUI_EVENT_TYPE, GuiEvent);

/// An event that carries work to a window's GUI thread. It stays with the
/// window it was queued to: it does not travel up to the parent windows.
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

/// Makes `window` run the function of every GuiEvent it receives (a window
/// calls this once, in its constructor).
void bindGuiEvents(wxEvtHandler& window);

/// Runs `work` on the GUI thread for `window`, unless the window is gone or
/// being deleted by then. Callable from any thread; the only wx call it makes
/// off the GUI thread is QueueEvent, which takes the event's ownership.
///
/// The test of `window` here is only a shortcut: on a worker thread it races
/// with the window's destruction on the GUI thread, so the workers of a window
/// must end before it is destroyed (a device window closes its link first).
/// What makes the late run safe is on the GUI thread: the event is queued to
/// the window's event handler, and wx deletes a handler's pending events with
/// the handler (a handler pushed on the window is popped before the window
/// goes, and from then on no longer passes events to it), so the function
/// never runs after the window is gone. The event holds the window's address,
/// not a copy of `window`: copying a wxWeakRef registers it with the window's
/// trackers, a list only the GUI thread may change.
template <class W>
void postToWindow(wxWeakRef<W> const& window, std::type_identity_t<std::function<void(W&)>> work) {
    W* const target = window.get();
    if (target == nullptr) return;
    target->GetEventHandler()->QueueEvent(new GuiEvent([target, work = std::move(work)](GuiEvent const&) {
        if (!target->IsBeingDeleted()) work(*target);
    }));
}
