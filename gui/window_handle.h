#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

#include <wx/event.h>

#include "gui_event.h"

namespace window_handle_detail {

// What a window's handles share: the window's event handler until the window
// starts to go, then null. The mutex keeps a worker's QueueEvent and the
// window's destruction apart; `alive` is written under it and read on the GUI
// thread without it.
struct Slot {
    explicit Slot(wxEvtHandler* window) : window(window) {}
    std::mutex mutex;
    wxEvtHandler* window;
    std::atomic<bool> alive{true};
};

}  // namespace window_handle_detail

template <class W>
class WindowHandle;

/// What every window that worker threads report to holds, as a member: it
/// makes the window run the GuiEvents it receives, and hands out the
/// WindowHandles that the window's callbacks capture. It is made and
/// destroyed with its window, on the GUI thread; from its destruction on,
/// whatever is posted through a handle is dropped.
///
/// Why not a wxWeakRef in the callbacks: the library copies and destroys the
/// callbacks it is given on its own threads, and every copy of a wxWeakRef
/// registers itself in the window's tracker list, which has no lock. A handle
/// is a shared pointer to a slot with its own lock, safe to copy anywhere.
class WindowAnchor {
public:
    explicit WindowAnchor(wxEvtHandler& window);
    ~WindowAnchor();
    WindowAnchor(WindowAnchor const&) = delete;
    WindowAnchor& operator=(WindowAnchor const&) = delete;

    template <class W>
    WindowHandle<W> handle(W& window) const {
        return WindowHandle<W>(slot_, &window);
    }

private:
    std::shared_ptr<window_handle_detail::Slot> slot_;
};

/// A window as the worker threads see it: something to post work to, which
/// may be gone. Any thread may copy, keep and destroy it.
template <class W>
class WindowHandle {
public:
    /// Runs `work` on the GUI thread for the window, unless the window is gone
    /// or being deleted by then. Callable from any thread: the only wx call it
    /// makes is QueueEvent, which takes the event's ownership.
    void post(std::function<void(W&)> work) const {
        std::lock_guard lock(slot_->mutex);
        if (slot_->window == nullptr) return;
        slot_->window->QueueEvent(
            new GuiEvent([slot = slot_, window = window_, work = std::move(work)](GuiEvent const&) {
                // A window closed while the event waited may still be here: wx
                // deletes a top-level window at the next idle time.
                if (!slot->alive) return;
                if constexpr (requires { window->IsBeingDeleted(); })
                    if (window->IsBeingDeleted()) return;
                work(*window);
            }));
    }

private:
    friend class WindowAnchor;
    WindowHandle(std::shared_ptr<window_handle_detail::Slot> slot, W* window)
        : slot_(std::move(slot)), window_(window) {}

    std::shared_ptr<window_handle_detail::Slot> slot_;
    W* window_;  // used on the GUI thread only, while the slot says it is alive
};

/// The one way a worker thread's result reaches a window (see WindowHandle).
template <class W>
void postToWindow(WindowHandle<W> const& window, std::type_identity_t<std::function<void(W&)>> work) {
    window.post(std::move(work));
}
