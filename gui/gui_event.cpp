#include "gui_event.h"

wxDEFINE_EVENT(GUI_EVENT_TYPE, GuiEvent);

GuiEvent::GuiEvent(Function function) : wxCommandEvent(GUI_EVENT_TYPE, 0), function_(std::move(function)) {
    StopPropagation();
}
