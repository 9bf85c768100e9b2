#pragma once

#include <wx/panel.h>
#include <wx/timer.h>

#include "window_handle.h"
#include "zelmor.h"

class wxStaticText;

/// The lines "WiFi Network: " and "WiFi Status: " of the WiFi setup dialogs,
/// kept live: while shown, it reads the device's information record every
/// second, one request at a time. A failed read is dropped; the next tick
/// tries again.
class GuiWifiStatus : public wxPanel {
public:
    static constexpr int kPollMs = 1000;

    /// Starts with the record the device read last, and reads it anew at once.
    GuiWifiStatus(wxWindow* parent, Zelmor& device);

    /// Reads the record now rather than at the next tick, e.g. after a join
    /// (once the read in flight, if any, has come back).
    void refresh();

private:
    void infoReceived(Zelmor::ResponseCode code, Zelmor::DeviceInfo const& info);
    /// True when a text changed.
    bool show(Zelmor::DeviceInfo const& info);

    Zelmor& device_;
    wxStaticText* network_;
    wxStaticText* status_;
    wxTimer timer_;
    bool reading_ = false;
    bool readAgain_ = false;
    WindowAnchor anchor_{*this};
};
