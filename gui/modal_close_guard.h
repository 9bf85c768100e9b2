#pragma once

#include <utility>

#include <wx/defs.h>

class wxWindow;

/// Closes a window only when none of its modal dialogs runs.
///
/// A window learns that it must close (its link ended) from an event, and
/// events also run inside the modal loop of a dialog that the window showed,
/// several calls up the stack. Closing there would let wx delete the window at
/// the next idle time, still inside that loop, and the dialog's caller would
/// then go on with a window that is gone. So the window shows each of its
/// modal dialogs through `modal`, and a close asked for while one runs waits
/// until the outermost has returned.
class ModalCloseGuard {
public:
    explicit ModalCloseGuard(wxWindow& window) : window_(window) {}

    /// Runs `show`, which shows a modal dialog of the window and returns its
    /// result. When a close is waiting by then, the answer is wxID_CANCEL
    /// whatever the user chose: what the dialog was for can no longer happen.
    template <class Show>
    int modal(Show&& show) {
        ++depth_;
        int const result = std::forward<Show>(show)();
        --depth_;
        if (!closeWaiting_) return result;
        if (depth_ == 0) closeLater();
        return wxID_CANCEL;
    }

    /// Closes the window now, or once its last modal dialog has returned.
    void close();

    bool closeWaiting() const { return closeWaiting_; }

private:
    void closeLater();

    wxWindow& window_;
    int depth_ = 0;
    bool closeWaiting_ = false;
};
