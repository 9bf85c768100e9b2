#pragma once

#include <wx/frame.h>
#include <wx/timer.h>

#include <memory>
#include <optional>
#include <vector>

#include "live_panel_rows.h"
#include "window_handle.h"
#include "zelmor.h"
#include "zelmor_scanner.h"

class ZelmorImpl;
class wxFlexGridSizer;
class wxPanel;
class wxStaticText;

/// The window of one device: it owns the device's connection for as long as it
/// is open, connects (Bluetooth LE, LAN or hub, by the identifier), reads the
/// device information, asks for the password when the device is locked and
/// shows the live readings. Device callbacks arrive on worker threads and
/// reach the window only through postToWindow (window_handle.h).
class GuiDevice : public wxFrame {
public:
    static constexpr int kMonitorTimerId = 6000;
    static constexpr int kLogSyncTimerId = 6001;
    static constexpr int kRefreshTimerId = 6002;
    static constexpr int kRefreshIntervalMs = 16;

    /// `scanner`: the device finder, for the Bluetooth LE models; may be null.
    GuiDevice(wxWindow* parent, Zelmor::DeviceIdentifier const& id, ZelmorScanner* scanner);
    ~GuiDevice() override;

    /// Asks for the password and unlocks; after a connect, goes on to the
    /// device-ready steps once unlocked.
    void deviceUnlock(bool onConnect);

    /// The rows the live panel shows now.
    std::vector<PanelRow> const& shownRows() const { return shownRows_; }

private:
    void buildMenus();
    void buildLivePanel();
    void setMenusEnabled(bool enabled);
    /// Replaces the device's callbacks by empty ones.
    void detachFromDevice();

    // On the GUI thread, through postToWindow.
    void linkUp();
    void infoReceived(Zelmor::ResponseCode code, Zelmor::DeviceInfo const& info);
    void deviceReady();
    void requestMonitorData();
    void monitorDataReceived(Zelmor::MonitorData const& data);
    void linkEnded(Zelmor::DisconnectReason reason);

    void OnMonitorDataTimerEvent(wxTimerEvent& event);
    void OnRefreshTimerEvent(wxTimerEvent& event);
    void OnClose(wxCloseEvent& event);

    Zelmor::DeviceIdentifier const id_;
    std::unique_ptr<ZelmorImpl> device_;
    Zelmor::DeviceInfo info_;
    std::optional<Zelmor::MonitorData> monitorData_;
    // Set when a reading arrived that the panel does not show yet: the refresh
    // timer redraws only then, and stops when there is nothing to draw.
    bool panelStale_ = false;
    std::vector<PanelRow> shownRows_;

    wxPanel* livePanel_ = nullptr;
    wxFlexGridSizer* liveGrid_ = nullptr;
    std::vector<std::pair<wxStaticText*, wxStaticText*>> liveLabels_;

    wxTimer monitorTimer_;
    wxTimer logSyncTimer_;
    wxTimer refreshTimer_;
    WindowAnchor anchor_{*this};
};
