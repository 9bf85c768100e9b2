#pragma once

#include <wx/frame.h>
#include <wx/timer.h>

#include <wx/weakref.h>

#include <memory>
#include <vector>

#include "local_device_list.h"
#include "local_devices_view.h"
#include "sighting_inbox.h"
#include "window_handle.h"
#include "zelmor.h"
#include "zelmor_scanner.h"

class GuiDevice;
class LocalStore;
class wxListCtrl;
class wxListEvent;

/// The main window, "Zelmor Manager": the devices found nearby in "Local
/// Devices", with their latest advertised readings, and the remote devices of
/// the local store in "Remote Devices". Opens a device window for either, and
/// adds and removes remote devices by device link.
///
/// Sightings arrive on the scanner's threads and wait in a SightingInbox; the
/// first one into an empty inbox wakes the window through postToWindow, which
/// takes the whole inbox kSightingBatchMs later on timer 6006. So a network of
/// a thousand devices costs five updates of the list a second, not a thousand.
/// A sighting not renewed for ten seconds is aged out on timer 6005.
class GuiMain : public wxFrame {
public:
    static constexpr int kAgeingTimerId = 6005;
    static constexpr int kAgeingIntervalMs = 1000;
    static constexpr int kSightingTimerId = 6006;
    static constexpr int kSightingBatchMs = 200;
    // Menu commands.
    static constexpr int kMenuAddRemoteDevice = wxID_HIGHEST + 1;
    static constexpr int kMenuWifiDirectConnect = wxID_HIGHEST + 2;
    static constexpr int kMenuRemoveRemoteDevice = wxID_HIGHEST + 3;

    /// Takes the scanner over and starts both of its sources; a source that
    /// cannot start (no BlueZ, the announcement port taken) leaves the other.
    GuiMain(LocalStore& store, std::unique_ptr<ZelmorScanner> scanner);
    /// Stops the scanner before anything it calls into goes away.
    ~GuiMain() override;

    wxListCtrl* localDevicesList() const { return localDevices_; }
    wxListCtrl* remoteDevicesList() const { return remoteDevices_; }

    /// Rebuilds "Remote Devices" from the local store.
    void rebuildRemoteDevices();

    /// The device windows opened from here that are still open.
    std::vector<GuiDevice*> deviceWindows();

private:
    void buildMenus();
    /// On the GUI thread, once a sighting has come into an empty inbox.
    void sightingsWaiting();
    void openDevice(Zelmor::DeviceIdentifier const& id, ZelmorScanner* scanner);

    void OnAgeingTimer(wxTimerEvent& event);
    void OnSightingTimer(wxTimerEvent& event);
    void OnMenuAddRemoteDevice(wxCommandEvent& event);
    void OnMenuWifiDirectConnect(wxCommandEvent& event);
    void OnMenuAbout(wxCommandEvent& event);
    void OnLocalDeviceActivated(wxListEvent& event);
    void OnRemoteDeviceActivated(wxListEvent& event);
    void OnRemoteDeviceRightClick(wxListEvent& event);
    void OnMenuRemoveRemoteDevice(wxCommandEvent& event);

    LocalStore& store_;
    std::unique_ptr<ZelmorScanner> scanner_;
    LocalDeviceList sightings_;
    // Shared with the scanner's callback, which may outlive the window's
    // destructor on the scanner's thread.
    std::shared_ptr<SightingInbox> inbox_ = std::make_shared<SightingInbox>();
    LocalDevicesView* localDevices_;
    wxListCtrl* remoteDevices_;
    wxTimer ageingTimer_;
    wxTimer sightingTimer_;
    // Not owned: a device window destroys itself, which clears its reference.
    std::vector<wxWeakRef<GuiDevice>> deviceWindows_;
    WindowAnchor anchor_{*this};
};
