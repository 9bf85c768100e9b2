#include "gui_application.h"

#include <wx/image.h>
#include <wx/socket.h>

#include "gui_main.h"
#include "local_store_instance.h"
#include "zelmor_scanner_impl.h"

bool GuiApplication::OnInit() {
    // Sockets are used from worker threads by the firmware check.
    wxSocketBase::Initialize();
    auto* png = new wxPNGHandler;
    png->SetName("PNG file");
    png->SetExtension("png");
    png->SetType(wxBITMAP_TYPE_PNG);
    png->SetMimeType("image/png");
    wxImage::AddHandler(png);
    LocalStore& store = localStore();
    mainWindow_ = new GuiMain(store, std::make_unique<ZelmorScannerImpl>());
    mainWindow_->Show(true);
    return true;
}
