#include "gui_wifi_setup.h"

#include <wx/button.h>
#include <wx/listctrl.h>
#include <wx/msgdlg.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

#include <algorithm>
#include <string>

#include "gui_enter_string.h"
#include "gui_wifi_status.h"
#include "network_list_box.h"
#include "report_response_code.h"
#include "wifi_text.h"

GuiWifiSetup::GuiWifiSetup(wxWindow* parent, Zelmor& device)
    : wxDialog(parent, wxID_ANY, "Zelmor WiFi Setup"), device_(device) {
    auto* column = new wxBoxSizer(wxVERTICAL);
    status_ = new GuiWifiStatus(this, device_);
    column->Add(status_, wxSizerFlags().Expand().Border());
    networks_ =
        addNetworkList(*this, column, "Wireless Network List", {{"Name", 190}, {"Signal", 160}, {"Security", 80}});
    column->Add(new wxStaticText(this, wxID_ANY, "Double-click a network to connect the device to it."),
                wxSizerFlags().Border(wxLEFT | wxRIGHT));
    auto* buttons = new wxBoxSizer(wxHORIZONTAL);
    buttons->Add(new wxButton(this, kRefreshId, "Refresh"));
    buttons->AddStretchSpacer();
    buttons->Add(new wxButton(this, wxID_CANCEL, "Close"));
    column->Add(buttons, wxSizerFlags().Expand().Border());
    SetSizerAndFit(column);

    Bind(wxEVT_BUTTON, &GuiWifiSetup::refresh, this, kRefreshId);
    networks_->Bind(wxEVT_LIST_ITEM_ACTIVATED, &GuiWifiSetup::networkChosen, this);
    // Called on the link's worker thread with a record that lives only for
    // the call: a copy travels to the dialog.
    device_.setScanResultHandler([self = anchor_.handle(*this)](Zelmor::WifiScanResult const* result) {
        if (result == nullptr) return;
        postToWindow(self, [found = *result](GuiWifiSetup& dialog) { dialog.scanResultReceived(found); });
    });
    startScan();
}

GuiWifiSetup::~GuiWifiSetup() { device_.setScanResultHandler({}); }

void GuiWifiSetup::refresh(wxCommandEvent&) { startScan(); }

void GuiWifiSetup::startScan() {
    // The results follow the answer: the list is emptied before they can come.
    networks_->DeleteAllItems();
    results_.clear();
    device_.requestStartWifiScan([self = anchor_.handle(*this)](Zelmor::ResponseCode code) {
        postToWindow(self, [code](GuiWifiSetup& dialog) { reportResponseCode(&dialog, code); });
    });
}

void GuiWifiSetup::scanResultReceived(Zelmor::WifiScanResult const& result) {
    std::string const name = scanResultName(result);
    // A hidden network has no name to join it by.
    if (name.empty()) return;
    // A network seen twice (two access points) keeps one row, with the latest sighting.
    auto const same = std::find_if(results_.begin(), results_.end(),
                                   [&](Zelmor::WifiScanResult const& r) { return scanResultName(r) == name; });
    auto const row = static_cast<long>(same - results_.begin());
    if (same == results_.end())
        results_.push_back(result);
    else
        *same = result;
    setNetworkRow(networks_, row, {name, wifiSignalText(result.rssi), wifiSecurityText(result.security)});
}

void GuiWifiSetup::networkChosen(wxListEvent& event) {
    auto const row = static_cast<size_t>(event.GetIndex());
    if (row >= results_.size()) return;
    Zelmor::WifiScanResult const chosen = results_[row];
    Zelmor::WifiNetwork network;
    network.ssid = scanResultName(chosen);
    network.security = chosen.security;
    if (wifiNeedsPassword(chosen.security)) {
        GuiEnterString dialog(this, wxID_ANY, "Network Password", true, false);
        dialog.setPrompt("Enter password for network");
        dialog.setMaxLength(kMaxWifiPasswordBytes);
        if (dialog.ShowModal() != wxID_OK) return;
        network.password = dialog.value();
    }
    // The field counts characters, the device bytes.
    if (std::string const problem = wifiNetworkProblem(network.ssid, network.password); !problem.empty()) {
        wxMessageDialog(this, wxString::FromUTF8(problem), "Error", wxOK | wxICON_ERROR | wxCENTRE).ShowModal();
        return;
    }
    join(network);
}

void GuiWifiSetup::join(Zelmor::WifiNetwork const& network) {
    device_.requestWifiConfigure(network, [self = anchor_.handle(*this)](Zelmor::ResponseCode code) {
        postToWindow(self, [code](GuiWifiSetup& dialog) {
            // Show "Connecting ..." at once rather than at the next tick.
            if (reportResponseCode(&dialog, code)) dialog.status_->refresh();
        });
    });
}
