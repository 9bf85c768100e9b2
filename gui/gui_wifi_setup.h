#pragma once

#include <wx/dialog.h>

#include <vector>

#include "window_handle.h"
#include "zelmor.h"

class GuiWifiStatus;
class wxListCtrl;
class wxListEvent;

/// WiFi setup of a device that keeps one network: the device's live WiFi
/// state, and the "Wireless Network List" of the networks it sees. The device
/// scans when the dialog opens and on "Refresh"; its results arrive one by
/// one as notifications. Double-clicking a network asks for its password
/// (not for an open network) and makes the device join it. Shown modally.
class GuiWifiSetup : public wxDialog {
public:
    static constexpr wxWindowID kRefreshId = wxID_REFRESH;

    /// `device` is connected and must outlive the dialog.
    GuiWifiSetup(wxWindow* parent, Zelmor& device);
    ~GuiWifiSetup() override;

private:
    void refresh(wxCommandEvent& event);
    void startScan();
    void scanResultReceived(Zelmor::WifiScanResult const& result);
    void networkChosen(wxListEvent& event);
    void join(Zelmor::WifiNetwork const& network);

    Zelmor& device_;
    GuiWifiStatus* status_;
    wxListCtrl* networks_;
    // The results shown, one per row.
    std::vector<Zelmor::WifiScanResult> results_;
    WindowAnchor anchor_{*this};
};
