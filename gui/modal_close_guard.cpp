#include "modal_close_guard.h"

#include <wx/window.h>

void ModalCloseGuard::close() {
    closeWaiting_ = true;
    if (depth_ == 0) window_.Close(true);
}

void ModalCloseGuard::closeLater() {
    // After the dialog's caller has returned to the event loop; by then a
    // caller may have shown another dialog, which defers the close again.
    // The queued call goes with the window if it is deleted first.
    window_.CallAfter([this] {
        if (depth_ == 0) window_.Close(true);
    });
}
