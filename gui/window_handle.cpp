#include "window_handle.h"

namespace {

void runGuiEvent(GuiEvent& event) {
    if (event.function()) event.function()(event);
}

}  // namespace

WindowAnchor::WindowAnchor(wxEvtHandler& window) : slot_(std::make_shared<window_handle_detail::Slot>(&window)) {
    window.Bind(GUI_EVENT_TYPE, &runGuiEvent);
}

WindowAnchor::~WindowAnchor() {
    std::lock_guard lock(slot_->mutex);
    slot_->window = nullptr;
    slot_->alive = false;
}
