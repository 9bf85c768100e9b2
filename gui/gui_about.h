#pragma once

#include <wx/dialog.h>

#include <cstdint>
#include <vector>

#include "window_handle.h"
#include "zelmor.h"

class wxButton;
class wxStaticText;

/// The device window's About: the program's version, what the device is, and
/// whether the firmware file server has a newer firmware for it. "Update"
/// sends that firmware through GuiDFUProgress. Ends with wxID_OK once the
/// device took a new firmware, else with wxID_CANCEL.
class GuiAbout : public wxDialog {
public:
    static constexpr int kUpdateId = 6100;

    /// Starts the check for an update at once, on a thread of its own.
    GuiAbout(wxWindow* parent, wxString const& title, Zelmor& device);

private:
    void startCheck();
    // On the GUI thread, through postToWindow.
    void checkEnded(std::vector<unsigned char> image, uint16_t version);
    void OnUpdate(wxCommandEvent& event);
    /// Ends the dialog modal or modeless, as wx's own buttons do.
    void end(int result);

    Zelmor& device_;
    // The record as the dialog was opened: what it shows and checks against.
    Zelmor::DeviceInfo const info_;
    wxStaticText* result_ = nullptr;
    wxButton* update_ = nullptr;
    // The downloaded file, and the version the image check found in it: 0
    // while the check runs, or when the file was missing or not sound.
    std::vector<unsigned char> firmwareImage_;
    uint16_t availableVersion_ = 0;
    WindowAnchor anchor_{*this};
};
