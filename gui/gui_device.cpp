#include "gui_device.h"

#include <wx/menu.h>
#include <wx/msgdlg.h>
#include <wx/panel.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

#include "auth_key.h"
#include "device_window_rules.h"
#include "gui_enter_string.h"
#include "hardware_revision.h"
#include "local_store_instance.h"
#include "lock_status.h"
#include "log_sync_text.h"
#include "report_response_code.h"
#include "window_handle.h"
#include "zelmor_impl.h"

namespace {

constexpr int kValueMargin = 10;

}  // namespace

GuiDevice::GuiDevice(wxWindow* parent, Zelmor::DeviceIdentifier const& id, ZelmorScanner*)
    : wxFrame(parent, wxID_ANY, wxString::FromUTF8(deviceWindowTitle(id.name)), wxDefaultPosition, wxSize(360, 420)),
      id_(id),
      device_(std::make_unique<ZelmorImpl>()),
      logSync_(*device_),
      monitorTimer_(this, kMonitorTimerId),
      logSyncTimer_(this, kLogSyncTimerId),
      refreshTimer_(this, kRefreshTimerId) {
    buildMenus();
    bindCommands();
    CreateStatusBar(1);
    SetStatusText("Disconnected");
    buildLivePanel();
    Bind(wxEVT_TIMER, &GuiDevice::OnMonitorDataTimerEvent, this, kMonitorTimerId);
    Bind(wxEVT_TIMER, &GuiDevice::OnRefreshTimerEvent, this, kRefreshTimerId);
    Bind(
        wxEVT_TIMER, [this](wxTimerEvent&) { startSync(); }, kLogSyncTimerId);
    Bind(wxEVT_CLOSE_WINDOW, &GuiDevice::OnClose, this);
    refreshTimer_.Start(kRefreshIntervalMs);

    auto const self = anchor_.handle(*this);
    device_->setConnectedCallback([self] { postToWindow(self, [](GuiDevice& window) { window.linkUp(); }); });
    device_->setDisconnectCallback([self, abandonSync = logSync_.abandoner()](Zelmor::DisconnectReason reason) {
        // At once, not posted: the GUI thread may be waiting in stopSync for
        // a reply that the ended link will never bring.
        abandonSync();
        postToWindow(self, [reason](GuiDevice& window) { window.linkEnded(reason); });
    });
    device_->setMonitorDataCallback([self](Zelmor::MonitorData const& data) {
        postToWindow(self, [data](GuiDevice& window) { window.monitorDataReceived(data); });
    });

    SetStatusText("Connecting ...");
    switch (chooseLink(id_)) {
        case LinkChoice::Bluetooth:
            // Without an adapter the attempt fails at once and is reported as usual.
            device_->openBluetooth();
            device_->connectBle(id_.bluetoothAddress);
            break;
        case LinkChoice::Lan:
            device_->connectLan(id_.ipAddress);
            break;
        case LinkChoice::Hub:
            device_->connectHub(hubAccessKey(id_));
            break;
    }
}

GuiDevice::~GuiDevice() {
    // Closed with its parent, the window gets no close event: detach here too.
    // The link's threads end here, before the window's event queue goes.
    detachFromDevice();
    device_.reset();
}

void GuiDevice::detachFromDevice() {
    device_->setConnectedCallback({});
    device_->setDisconnectCallback({});
    device_->setMonitorDataCallback({});
    // A block still on its way writes nothing for a window that goes.
    logSync_.abandoner()();
}

int GuiDevice::showModal(wxDialog& dialog) {
    return guard_.modal([&dialog] { return dialog.ShowModal(); });
}

int GuiDevice::showMessage(wxString const& text, wxString const& caption, long style) {
    wxMessageDialog box(this, text, caption, style);
    return showModal(box);
}

bool GuiDevice::report(Zelmor::ResponseCode code) {
    bool proceed = true;
    guard_.modal([&] {
        proceed = reportResponseCode(this, code);
        return wxID_OK;
    });
    return proceed && !guard_.closeWaiting();
}

void GuiDevice::buildLivePanel() {
    livePanel_ = new wxPanel(this);
    liveGrid_ = new wxFlexGridSizer(2, wxSize(kValueMargin, 4));
    liveGrid_->AddGrowableCol(1);
    auto* border = new wxBoxSizer(wxVERTICAL);
    border->Add(liveGrid_, 1, wxEXPAND | wxALL, kValueMargin);
    livePanel_->SetSizer(border);
}

void GuiDevice::linkUp() {
    auto const self = anchor_.handle(*this);
    device_->requestGetInfo([self](Zelmor::ResponseCode code, Zelmor::DeviceInfo const& info) {
        postToWindow(self, [code, info](GuiDevice& window) { window.infoReceived(code, info); });
    });
}

void GuiDevice::infoReceived(Zelmor::ResponseCode code, Zelmor::DeviceInfo const& info) {
    if (!report(code)) return;
    info_ = info;
    SetStatusText("Connected");
    SetTitle(wxString::FromUTF8(deviceWindowTitle(info.name)));
    if (deviceLocked(info))
        deviceUnlock(true);
    else
        deviceReady();
}

void GuiDevice::refreshInfo() {
    auto const self = anchor_.handle(*this);
    device_->requestGetInfo([self](Zelmor::ResponseCode code, Zelmor::DeviceInfo const& info) {
        postToWindow(self, [code, info](GuiDevice& window) {
            if (!window.report(code)) return;
            window.info_ = info;
            window.SetTitle(wxString::FromUTF8(deviceWindowTitle(info.name)));
        });
    });
}

void GuiDevice::deviceUnlock(bool onConnect) {
    GuiEnterString dialog(this, wxID_ANY, "Enter password", true, false);
    if (showModal(dialog) != wxID_OK) return;
    auto const self = anchor_.handle(*this);
    device_->requestUnlock(makeAuthKey(dialog.value()), [self, onConnect](Zelmor::ResponseCode code) {
        postToWindow(self, [code, onConnect](GuiDevice& window) {
            if (code == Zelmor::ResponseCode::Success) {
                if (onConnect) window.deviceReady();
            } else if (code == Zelmor::ResponseCode::PasswordRejected) {
                if (window.showMessage("Invalid password.", "Error", kErrorStyle) == wxID_OK)
                    window.deviceUnlock(onConnect);
            } else {
                window.report(code);
            }
        });
    });
}

void GuiDevice::deviceReady() {
    // The Bluetooth LE models push their readings; the network models are asked.
    if (isNetworkModel(info_.hardwareRevision)) {
        monitorTimer_.Start(static_cast<int>(monitorPollMs(device_->isDirectConnection())));
        // The first readings at once rather than a poll period later.
        requestMonitorData();
    }
    localStore().setCurrentDevice(serial());
    ready_ = true;
    logSyncTimer_.StartOnce(kFirstSyncDelayMs);
    setMenusEnabled(true);
    readTimeZone();
}

void GuiDevice::readTimeZone() {
    // Quietly: a locked configuration leaves the clock in UTC, and the user
    // meets the lock where it matters, in the configuration dialog.
    device_->requestGetConfig([self = anchor_.handle(*this)](Zelmor::ResponseCode code, ZelmorConfig const& config) {
        if (code != Zelmor::ResponseCode::Success) return;
        postToWindow(self, [zone = config.timeZone()](GuiDevice& window) { window.setTimeZone(zone); });
    });
}

void GuiDevice::setTimeZone(std::string zone) {
    timeZone_ = std::move(zone);
    panelStale_ = true;
    if (!refreshTimer_.IsRunning()) refreshTimer_.Start(kRefreshIntervalMs);
}

uint64_t GuiDevice::serial() const { return id_.serial != 0 ? id_.serial : info_.serial; }

void GuiDevice::startSync() {
    if (!ready_) return;
    // The window's own folder: another device window may have selected its
    // device in the store since.
    std::filesystem::path const directory = deviceLogDirectory(localStore().dataDir(), serial());
    auto const self = anchor_.handle(*this);
    LogMirror::Callbacks callbacks;
    callbacks.carryList = [self](std::function<void()> step) { postToWindow(self, [step](GuiDevice&) { step(); }); };
    callbacks.progress = [self](uint64_t, uint64_t) {
        postToWindow(self, [](GuiDevice& window) { window.showSyncStatus(); });
    };
    callbacks.done = [self](LogMirror::Outcome const& outcome) {
        bool const schedulesNext = outcome.schedulesNext();
        postToWindow(self, [schedulesNext](GuiDevice& window) { window.syncEnded(schedulesNext); });
    };
    logSync_.startSync(directory, info_.hardwareRevision, std::move(callbacks));
}

void GuiDevice::stopSync() { logSync_.stopSync(); }

void GuiDevice::showSyncStatus() {
    if (!ready_) return;
    SetStatusText(syncStatusText(logSync_.syncing(), logSync_.syncBytesDone(), logSync_.syncBytesTotal()));
}

void GuiDevice::syncEnded(bool schedulesNext) {
    showSyncStatus();
    // A stopSync or a newer sync may have come since the end was posted.
    if (schedulesNext && ready_ && logSync_.syncEnabled() && !logSync_.syncing())
        logSyncTimer_.StartOnce(kSyncPeriodMs);
}

void GuiDevice::OnMonitorDataTimerEvent(wxTimerEvent&) { requestMonitorData(); }

void GuiDevice::requestMonitorData() {
    auto const self = anchor_.handle(*this);
    device_->requestGetMonitorData([self](Zelmor::ResponseCode code, Zelmor::MonitorData const& data) {
        // A failed poll is dropped; the next tick tries again.
        if (code != Zelmor::ResponseCode::Success) return;
        postToWindow(self, [data](GuiDevice& window) { window.monitorDataReceived(data); });
    });
}

void GuiDevice::monitorDataReceived(Zelmor::MonitorData const& data) {
    monitorData_ = data;
    panelStale_ = true;
    if (!refreshTimer_.IsRunning()) refreshTimer_.Start(kRefreshIntervalMs);
}

void GuiDevice::OnRefreshTimerEvent(wxTimerEvent&) {
    if (!panelStale_ || !monitorData_) {
        // Nothing new to draw: the timer sleeps until the next reading, so an
        // idle window is not woken sixty times a second.
        refreshTimer_.Stop();
        return;
    }
    panelStale_ = false;
    uint8_t const revision = monitorData_->hardwareRevision;
    bool const rssiAvailable = !isNetworkModel(revision) || isWifiFamily(revision);
    std::vector<PanelRow> rows = livePanelRows(*monitorData_, rssiAvailable, timeZone_);

    bool const sameLabels = rows.size() == shownRows_.size() &&
                            std::equal(rows.begin(), rows.end(), shownRows_.begin(),
                                       [](PanelRow const& a, PanelRow const& b) { return a.label == b.label; });
    if (!sameLabels) {
        liveGrid_->Clear(true);
        liveLabels_.clear();
        for (PanelRow const& row : rows) {
            auto* label = new wxStaticText(livePanel_, wxID_ANY, wxString::FromUTF8(row.label));
            auto* value = new wxStaticText(livePanel_, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize,
                                           wxALIGN_RIGHT | wxST_NO_AUTORESIZE);
            liveGrid_->Add(label);
            liveGrid_->Add(value, 1, wxEXPAND);
            liveLabels_.emplace_back(label, value);
        }
    }
    for (size_t i = 0; i < rows.size(); ++i) {
        if (sameLabels && rows[i].value == shownRows_[i].value) continue;
        liveLabels_[i].second->SetLabel(wxString::FromUTF8(rows[i].value));
    }
    shownRows_ = std::move(rows);
    if (!sameLabels) livePanel_->Layout();
}

void GuiDevice::linkEnded(Zelmor::DisconnectReason reason) {
    ready_ = false;
    monitorTimer_.Stop();
    logSyncTimer_.Stop();
    localStore().clearCurrentDevice();
    setMenusEnabled(false);
    SetStatusText("Disconnected");
    LinkEndOutcome const outcome = linkEndOutcome(reason);
    if (outcome.showMessage) showMessage(outcome.message, kLinkEndCaption);
    guard_.close();
}

void GuiDevice::OnClose(wxCloseEvent& event) {
    // No late callback may reach a closing window.
    detachFromDevice();
    refreshTimer_.Stop();
    monitorTimer_.Stop();
    logSyncTimer_.Stop();
    event.Skip();
}
