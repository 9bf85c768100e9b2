#include "screenshot.h"

#include <wx/bitmap.h>
#include <wx/dcclient.h>
#include <wx/dcmemory.h>
#include <wx/stdpaths.h>
#include <wx/window.h>

#include <system_error>

std::filesystem::path screenshotDirectory() {
    std::filesystem::path const program(wxStandardPaths::Get().GetExecutablePath().utf8_string());
    return program.parent_path() / "screenshots";
}

std::filesystem::path saveScreenshot(wxWindow& window, std::string const& name) {
    window.Update();
    wxSize const size = window.GetClientSize();
    wxBitmap bitmap(size);
    {
        wxClientDC shown(&window);
        wxMemoryDC copy(bitmap);
        if (!copy.Blit(0, 0, size.x, size.y, &shown, 0, 0)) return {};
    }
    std::error_code error;
    std::filesystem::create_directories(screenshotDirectory(), error);
    std::filesystem::path const file = screenshotDirectory() / (name + ".png");
    if (error || !bitmap.SaveFile(file.string(), wxBITMAP_TYPE_PNG)) return {};
    return file;
}
