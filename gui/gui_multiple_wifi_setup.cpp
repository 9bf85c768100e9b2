#include "gui_multiple_wifi_setup.h"

#include <wx/button.h>
#include <wx/listctrl.h>
#include <wx/sizer.h>

#include "gui_wifi_add.h"
#include "gui_wifi_status.h"
#include "network_list_box.h"
#include "report_response_code.h"
#include "wifi_text.h"

GuiMultipleWifiSetup::GuiMultipleWifiSetup(wxWindow* parent, Zelmor& device)
    : wxDialog(parent, wxID_ANY, "Zelmor WiFi Setup"), device_(device), listTimer_(this) {
    auto* column = new wxBoxSizer(wxVERTICAL);
    status_ = new GuiWifiStatus(this, device_);
    column->Add(status_, wxSizerFlags().Expand().Border());
    networks_ = addNetworkList(*this, column, "Known WiFi Networks", {{"Name", 200}, {"Properties", 260}});
    auto* buttons = new wxBoxSizer(wxHORIZONTAL);
    buttons->Add(new wxButton(this, kAddId, "Add Network"));
    buttons->Add(new wxButton(this, kRemoveId, "Remove Network"), wxSizerFlags().Border(wxLEFT));
    buttons->AddStretchSpacer();
    buttons->Add(new wxButton(this, wxID_CANCEL, "Close"));
    column->Add(buttons, wxSizerFlags().Expand().Border());
    SetSizerAndFit(column);

    Bind(wxEVT_BUTTON, &GuiMultipleWifiSetup::addNetwork, this, kAddId);
    Bind(wxEVT_BUTTON, &GuiMultipleWifiSetup::removeNetwork, this, kRemoveId);
    Bind(
        wxEVT_UPDATE_UI, [this](wxUpdateUIEvent& event) { event.Enable(networks_->GetSelectedItemCount() > 0); },
        kRemoveId);
    Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
        if (IsShownOnScreen()) readList(false);
    });
    listTimer_.Start(kListPollMs);
    readList(true);
}

void GuiMultipleWifiSetup::readList(bool report) {
    device_.requestGetWifiNetworks([self = anchor_.handle(*this), report](
                                       Zelmor::ResponseCode code, std::vector<Zelmor::WifiNetwork> const& networks) {
        postToWindow(self, [code, networks, report](GuiMultipleWifiSetup& dialog) {
            dialog.listReceived(code, networks, report);
        });
    });
}

void GuiMultipleWifiSetup::listReceived(Zelmor::ResponseCode code, std::vector<Zelmor::WifiNetwork> const& networks,
                                        bool report) {
    if (code != Zelmor::ResponseCode::Success) {
        if (report) reportResponseCode(this, code);
        return;
    }
    // Rows are rewritten in place, so that the selection stays where it was.
    while (networks_->GetItemCount() > static_cast<int>(networks.size()))
        networks_->DeleteItem(networks_->GetItemCount() - 1);
    for (size_t i = 0; i < networks.size(); ++i)
        setNetworkRow(networks_, static_cast<long>(i), {networks[i].ssid, wifiNetworkProperties(networks[i])});
}

void GuiMultipleWifiSetup::addNetwork(wxCommandEvent&) {
    GuiWifiAdd dialog(this);
    if (dialog.ShowModal() != wxID_OK) return;
    device_.requestAddWifiNetwork(dialog.network(), [self = anchor_.handle(*this)](Zelmor::ResponseCode code) {
        postToWindow(self, [code](GuiMultipleWifiSetup& dialog) { dialog.changeDone(code); });
    });
}

void GuiMultipleWifiSetup::removeNetwork(wxCommandEvent&) {
    long const row = networks_->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED);
    if (row < 0) return;
    // The rows are the device's list in its order: a row's index is the entry's.
    device_.requestRemoveWifiNetwork(
        static_cast<uint8_t>(row), [self = anchor_.handle(*this)](Zelmor::ResponseCode code) {
            postToWindow(self, [code](GuiMultipleWifiSetup& dialog) { dialog.changeDone(code); });
        });
}

void GuiMultipleWifiSetup::changeDone(Zelmor::ResponseCode code) {
    if (!reportResponseCode(this, code)) return;
    readList(true);
    status_->refresh();
}
