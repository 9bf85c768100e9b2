#include "gui_application.h"

wxIMPLEMENT_APP(GuiApplication);
