#pragma once

#include <wx/dialog.h>
#include <wx/timer.h>

#include <vector>

#include "window_handle.h"
#include "zelmor.h"

class GuiWifiStatus;
class wxListCtrl;

/// WiFi setup of a device that keeps a list of known networks: the device's
/// live WiFi state and the "Known WiFi Networks" with their properties.
/// "Add Network" asks for one (GuiWifiAdd) and adds it, "Remove Network"
/// removes the selected one; the device joins a known network within reach
/// on its own. The list is read when the dialog opens, after every change and
/// every kListPollMs. Shown modally.
class GuiMultipleWifiSetup : public wxDialog {
public:
    static constexpr wxWindowID kAddId = wxID_ADD;
    static constexpr wxWindowID kRemoveId = wxID_REMOVE;
    static constexpr int kListPollMs = 3000;

    /// `device` is connected and must outlive the dialog.
    GuiMultipleWifiSetup(wxWindow* parent, Zelmor& device);

private:
    /// Reads the list; `report`: a failure is told to the user (not for the
    /// periodic reads, which would repeat it every few seconds).
    void readList(bool report);
    void listReceived(Zelmor::ResponseCode code, std::vector<Zelmor::WifiNetwork> const& networks, bool report);
    void addNetwork(wxCommandEvent& event);
    void removeNetwork(wxCommandEvent& event);
    /// After an add or a remove: the list and the state anew, or the failure.
    void changeDone(Zelmor::ResponseCode code);

    Zelmor& device_;
    GuiWifiStatus* status_;
    wxListCtrl* networks_;
    wxTimer listTimer_;
    WindowAnchor anchor_{*this};
};
