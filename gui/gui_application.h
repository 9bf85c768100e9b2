#pragma once

#include <wx/app.h>

class GuiMain;

/// The application object: prepares the toolkit and opens the main window.
/// The program ends when the last top-level window closes.
class GuiApplication : public wxApp {
public:
    bool OnInit() override;

private:
    GuiMain* mainWindow_ = nullptr;
};
