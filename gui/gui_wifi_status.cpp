#include "gui_wifi_status.h"

#include <wx/sizer.h>
#include <wx/stattext.h>

#include <utility>

#include "wifi_text.h"

GuiWifiStatus::GuiWifiStatus(wxWindow* parent, Zelmor& device) : wxPanel(parent), device_(device), timer_(this) {
    auto* grid = new wxFlexGridSizer(2, wxSize(4, 4));
    grid->AddGrowableCol(1);
    grid->Add(new wxStaticText(this, wxID_ANY, "WiFi Network: "));
    network_ = new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, 0, "wifi_network");
    grid->Add(network_, wxSizerFlags().Expand());
    grid->Add(new wxStaticText(this, wxID_ANY, "WiFi Status: "));
    status_ = new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, 0, "wifi_status");
    grid->Add(status_, wxSizerFlags().Expand());
    SetSizer(grid);
    show(device_.getDeviceInfo());
    Bind(wxEVT_TIMER, [this](wxTimerEvent&) {
        if (IsShownOnScreen()) refresh();
    });
    timer_.Start(kPollMs);
    refresh();
}

void GuiWifiStatus::refresh() {
    if (reading_) {
        readAgain_ = true;
        return;
    }
    reading_ = true;
    device_.requestGetInfo([self = anchor_.handle(*this)](Zelmor::ResponseCode code, Zelmor::DeviceInfo const& info) {
        postToWindow(self, [code, info](GuiWifiStatus& panel) { panel.infoReceived(code, info); });
    });
}

void GuiWifiStatus::infoReceived(Zelmor::ResponseCode code, Zelmor::DeviceInfo const& info) {
    reading_ = false;
    // A longer text may need more room in the dialog.
    if (code == Zelmor::ResponseCode::Success && show(info)) GetParent()->Layout();
    if (readAgain_) {
        readAgain_ = false;
        refresh();
    }
}

bool GuiWifiStatus::show(Zelmor::DeviceInfo const& info) {
    bool changed = false;
    // Set only what changed: an unchanged label is not redrawn every second.
    // Label texts, not labels: a '&' in a network name is no mnemonic.
    for (auto const& [label, text] : {std::pair{network_, wifiNetworkText(info)}, {status_, wifiStatusText(info)}}) {
        wxString const shown = wxString::FromUTF8(text);
        if (label->GetLabelText() == shown) continue;
        label->SetLabelText(shown);
        changed = true;
    }
    return changed;
}
