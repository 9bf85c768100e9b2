#pragma once

#include <wx/frame.h>
#include <wx/timer.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device_commands_text.h"
#include "live_panel_rows.h"
#include "log_mirror.h"
#include "modal_close_guard.h"
#include "window_handle.h"
#include "zelmor.h"
#include "zelmor_scanner.h"

class ZelmorImpl;
class wxDialog;
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
    /// The first data log sync waits this long after the device is ready; a
    /// sync that had bytes to fetch and ran to its end schedules the next.
    static constexpr int kFirstSyncDelayMs = 2000;
    static constexpr int kSyncPeriodMs = 600000;

    // Menu commands.
    static constexpr int kMenuSyncLog = 6003;
    static constexpr int kMenuClearLocalLog = 6004;
    static constexpr int kMenuPair = 6005;
    static constexpr int kMenuConfiguration = 6006;
    static constexpr int kMenuWifiSetup = 6007;
    static constexpr int kMenuResetFactory = 6008;
    static constexpr int kMenuUnlock = 6009;
    static constexpr int kMenuSetUserPassword = 6010;
    static constexpr int kMenuSetMasterPassword = 6011;
    static constexpr int kMenuRename = 6012;
    static constexpr int kMenuSetTime = 6013;
    static constexpr int kMenuZeroCurrentOffset = 6014;
    static constexpr int kMenuCalibrateCurrent = 6015;
    static constexpr int kMenuResetEnergyMeter = 6016;
    static constexpr int kMenuResetCoulombMeter = 6017;
    static constexpr int kMenuViewStatistics = 6018;
    static constexpr int kMenuViewFgStatistics = 6019;
    static constexpr int kMenuPowerControl = 6021;
    static constexpr int kMenuDataLog = 6022;
    static constexpr int kMenuTimers = 6023;
    static constexpr int kMenuDisconnect = 6024;
    static constexpr int kMenuForceFgSync = 6025;
    static constexpr int kMenuAbout = wxID_ABOUT;

    /// `scanner`: the device finder, for the Bluetooth LE models; may be null.
    GuiDevice(wxWindow* parent, Zelmor::DeviceIdentifier const& id, ZelmorScanner* scanner);
    ~GuiDevice() override;

    /// Asks for the password and unlocks; after a connect, goes on to the
    /// device-ready steps once unlocked.
    void deviceUnlock(bool onConnect);

    /// The rows the live panel shows now.
    std::vector<PanelRow> const& shownRows() const { return shownRows_; }

    /// The device's information record as last read.
    Zelmor::DeviceInfo const& deviceInfo() const { return info_; }

    /// Brings the local copy of the device's data log up to date (see
    /// LogMirror); while a sync is under way, lets that one go on.
    void startSync();
    /// Stops the sync and waits until it has.
    void stopSync();
    /// A sync is copying files.
    bool syncing() const { return logSync_.syncing(); }

private:
    void buildMenus();
    void buildLivePanel();
    /// Enables or disables every command; "WiFi Setup" goes for good unless
    /// the device is a WiFi model reached directly.
    void setMenusEnabled(bool enabled);
    static constexpr long kInfoStyle = wxOK | wxCENTRE | wxSTAY_ON_TOP;
    static constexpr long kErrorStyle = wxOK | wxICON_ERROR | wxCENTRE | wxSTAY_ON_TOP;
    static constexpr long kQuestionStyle = wxOK | wxCANCEL | wxICON_QUESTION | wxCENTRE | wxSTAY_ON_TOP;

    /// Shows a modal dialog of this window (see ModalCloseGuard).
    int showModal(wxDialog& dialog);
    /// A message box of this window, shown through showModal.
    int showMessage(wxString const& text, wxString const& caption, long style = kInfoStyle);
    /// reportResponseCode, as a modal dialog of this window.
    bool report(Zelmor::ResponseCode code);
    /// Asks `question` under "Confirmation"; true when the user chose OK.
    bool confirm(wxString const& question);
    /// A request's callback that reports a failure on the GUI thread and runs
    /// `success` (if any) after a good reply.
    Zelmor::DoneCallback replyHandler(std::function<void(GuiDevice&)> success = {});
    /// The device's serial: the identifier's, or the one it reported.
    uint64_t serial() const;
    /// Replaces the device's callbacks by empty ones.
    void detachFromDevice();

    // On the GUI thread, through postToWindow.
    void linkUp();
    void infoReceived(Zelmor::ResponseCode code, Zelmor::DeviceInfo const& info);
    /// Reads the information record again, after a command changed the name.
    void refreshInfo();
    void deviceReady();
    void readTimeZone();
    void setTimeZone(std::string zone);
    void requestMonitorData();
    void monitorDataReceived(Zelmor::MonitorData const& data);
    void linkEnded(Zelmor::DisconnectReason reason);
    /// The status line, with the sync's progress while it copies.
    void showSyncStatus();
    void syncEnded(bool schedulesNext);

    // Commands (gui_device_commands.cpp).
    void bindCommands();
    void confirmAndSend(wxString const& question, void (Zelmor::*request)(Zelmor::DoneCallback));
    void OnMenuDeviceViewStats(wxCommandEvent& event);
    void OnMenuDeviceViewFgStats(wxCommandEvent& event);
    void OnMenuDeviceTimers(wxCommandEvent& event);
    void OnMenuSettingsWifiSetup(wxCommandEvent& event);
    void OnMenuDevicePowerControl(wxCommandEvent& event);
    void OnMenuSettingsSetPassword(PasswordLock lock);
    void sendPasswordChange(PasswordLock lock, std::optional<std::string> const& password);
    void unlockAndRetry(PasswordLock lock, std::optional<std::string> const& password, Zelmor::ResponseCode lockedBy);
    void OnMenuSettingsRename(wxCommandEvent& event);
    void OnMenuSettingsConfiguration(wxCommandEvent& event);
    void OnMenuDevicePair(wxCommandEvent& event);
    void OnMenuSettingsResetFactory(wxCommandEvent& event);
    void OnMenuSettingsSetTime(wxCommandEvent& event);
    void OnMenuSettingsCalibrateCurrent(wxCommandEvent& event);
    void OnMenuAbout(wxCommandEvent& event);
    void OnMenuDeviceDataLog(wxCommandEvent& event);
    void OnMenuDeviceClearLocalLog(wxCommandEvent& event);

    void OnMonitorDataTimerEvent(wxTimerEvent& event);
    void OnRefreshTimerEvent(wxTimerEvent& event);
    void OnClose(wxCloseEvent& event);

    Zelmor::DeviceIdentifier const id_;
    std::unique_ptr<ZelmorImpl> device_;
    LogMirror logSync_;
    Zelmor::DeviceInfo info_;
    std::optional<Zelmor::MonitorData> monitorData_;
    // The zone of the device's configuration, which its clock is shown in:
    // read when the device is ready and after each saved configuration;
    // empty (UTC) until then or when the device does not tell.
    std::string timeZone_;
    // Set when a reading arrived that the panel does not show yet: the refresh
    // timer redraws only then, and stops when there is nothing to draw.
    bool panelStale_ = false;
    // From the device-ready steps until the link ends: the status line then
    // tells the sync's progress.
    bool ready_ = false;
    std::vector<PanelRow> shownRows_;

    wxPanel* livePanel_ = nullptr;
    wxFlexGridSizer* liveGrid_ = nullptr;
    std::vector<std::pair<wxStaticText*, wxStaticText*>> liveLabels_;

    wxTimer monitorTimer_;
    wxTimer logSyncTimer_;
    wxTimer refreshTimer_;
    ModalCloseGuard guard_{*this};
    WindowAnchor anchor_{*this};
};
