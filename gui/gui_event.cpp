#include "gui_event.h"

wxDEFINE_EVENT(GUI_EVENT_TYPE, GuiEvent);

namespace {

void runGuiEvent(GuiEvent& event) {
    if (event.function()) event.function()(event);
}

}  // namespace

GuiEvent::GuiEvent(Function function) : wxCommandEvent(GUI_EVENT_TYPE, 0), function_(std::move(function)) {
    StopPropagation();
}

void bindGuiEvents(wxEvtHandler& window) { window.Bind(GUI_EVENT_TYPE, &runGuiEvent); }
