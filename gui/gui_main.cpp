#include "gui_main.h"

#include <wx/listctrl.h>
#include <wx/menu.h>
#include <wx/msgdlg.h>
#include <wx/sizer.h>
#include <wx/statbox.h>
#include <wx/time.h>

#include "about_text.h"
#include "device_link.h"
#include "device_window_rules.h"
#include "gui_device.h"
#include "gui_enter_string.h"
#include "hardware_revision.h"
#include "local_store.h"
#include "window_handle.h"

namespace {

constexpr size_t kDeviceLinkMaxLength = 255;

// The backspace between "device." and "Your" belongs to the text.
constexpr char kWifiDirectInstructions[] =
    "Please power up your WiFi Zelmor battery monitor. \nIf you previously disabled the AP mode of your device, "
    "power cycle it.\nUse your computer WiFi settings to connect to the device.\bYour device will show up like: "
    "ZLMR_12A456B8.\nThe password is: relayfox";

/// A titled box filling its share of `sizer`, with the list `make` gives for
/// the box's own window.
template <class List, class Make>
List* addList(wxWindow* parent, wxSizer* sizer, char const* title, Make make) {
    auto* box = new wxStaticBoxSizer(wxVERTICAL, parent, title);
    List* list = make(box->GetStaticBox());
    box->Add(list, 1, wxEXPAND | wxALL, 4);
    sizer->Add(box, 1, wxEXPAND | wxALL, 4);
    return list;
}

}  // namespace

GuiMain::GuiMain(LocalStore& store, std::unique_ptr<ZelmorScanner> scanner)
    : wxFrame(nullptr, wxID_ANY, kProgramName, wxDefaultPosition, wxSize(1300, 600)),
      store_(store),
      scanner_(std::move(scanner)),
      ageingTimer_(this, kAgeingTimerId),
      sightingTimer_(this, kSightingTimerId) {
    buildMenus();

    auto* sizer = new wxBoxSizer(wxVERTICAL);
    localDevices_ = addList<LocalDevicesView>(this, sizer, "Local Devices",
                                              [this](wxWindow* box) { return new LocalDevicesView(box, sightings_); });
    remoteDevices_ = addList<wxListCtrl>(this, sizer, "Remote Devices", [](wxWindow* box) {
        return new wxListCtrl(box, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxLC_REPORT | wxLC_SINGLE_SEL);
    });
    SetSizer(sizer);

    remoteDevices_->AppendColumn("Name", wxLIST_FORMAT_LEFT, 200);
    remoteDevices_->AppendColumn("Model", wxLIST_FORMAT_LEFT, 120);
    remoteDevices_->AppendColumn("Serial Number", wxLIST_FORMAT_LEFT, 150);

    localDevices_->Bind(wxEVT_LIST_ITEM_ACTIVATED, &GuiMain::OnLocalDeviceActivated, this);
    remoteDevices_->Bind(wxEVT_LIST_ITEM_ACTIVATED, &GuiMain::OnRemoteDeviceActivated, this);
    remoteDevices_->Bind(wxEVT_LIST_ITEM_RIGHT_CLICK, &GuiMain::OnRemoteDeviceRightClick, this);
    Bind(wxEVT_TIMER, &GuiMain::OnAgeingTimer, this, kAgeingTimerId);
    Bind(wxEVT_TIMER, &GuiMain::OnSightingTimer, this, kSightingTimerId);

    store_.setRemoteDevicesObserver([this] { rebuildRemoteDevices(); });
    rebuildRemoteDevices();

    // The scanner's threads end in the destructor, before the window goes.
    scanner_->setAdvertisementCallback(
        [inbox = inbox_, self = anchor_.handle(*this)](ZelmorScanner::Advertisement const& advertisement) {
            if (inbox->put(advertisement)) postToWindow(self, [](GuiMain& window) { window.sightingsWaiting(); });
        });
    scanner_->startWifiScan();
    scanner_->initBle();
    ageingTimer_.Start(kAgeingIntervalMs);
}

GuiMain::~GuiMain() {
    ageingTimer_.Stop();
    sightingTimer_.Stop();
    scanner_->setAdvertisementCallback({});
    scanner_->stopWifiScan();
    scanner_->stopBle();
    store_.setRemoteDevicesObserver({});
}

void GuiMain::buildMenus() {
    auto* device = new wxMenu;
    device->Append(GuiMain::kMenuAddRemoteDevice, "Add Remote Device", "Add New Remote Device");
    device->Append(GuiMain::kMenuWifiDirectConnect, "WiFi Direct Connect",
                   "Direct Connection to network Zelmor devices");
    auto* help = new wxMenu;
    help->Append(wxID_ABOUT, "&About");
    auto* bar = new wxMenuBar;
    bar->Append(device, "&Device");
    bar->Append(help, "&Help");
    SetMenuBar(bar);
    CreateStatusBar();
    Bind(wxEVT_MENU, &GuiMain::OnMenuAddRemoteDevice, this, GuiMain::kMenuAddRemoteDevice);
    Bind(wxEVT_MENU, &GuiMain::OnMenuWifiDirectConnect, this, GuiMain::kMenuWifiDirectConnect);
    Bind(wxEVT_MENU, &GuiMain::OnMenuAbout, this, wxID_ABOUT);
    Bind(wxEVT_MENU, &GuiMain::OnMenuRemoveRemoteDevice, this, GuiMain::kMenuRemoveRemoteDevice);
}

void GuiMain::sightingsWaiting() {
    // The first sighting of a batch: the ones after it join it until the timer.
    if (!sightingTimer_.IsRunning()) sightingTimer_.StartOnce(kSightingBatchMs);
}

void GuiMain::OnSightingTimer(wxTimerEvent&) {
    localDevices_->showChanges(sightings_.take(inbox_->take(), wxGetUTCTimeMillis().GetValue()));
}

void GuiMain::OnAgeingTimer(wxTimerEvent&) {
    localDevices_->removeRows(sightings_.age(wxGetUTCTimeMillis().GetValue()));
    // A LAN listener whose socket failed is started afresh; one that listens
    // is left as it is, so this costs nothing while all is well.
    scanner_->startWifiScan();
}

void GuiMain::rebuildRemoteDevices() {
    remoteDevices_->DeleteAllItems();
    long row = 0;
    for (Zelmor::DeviceIdentifier const& id : store_.remoteDevices()) {
        remoteDevices_->InsertItem(row, wxString::FromUTF8(id.name));
        remoteDevices_->SetItem(row, 1, modelName(id.hardwareRevision));
        remoteDevices_->SetItem(row, 2, wxString::Format("%016llX", static_cast<unsigned long long>(id.serial)));
        ++row;
    }
}

void GuiMain::openDevice(Zelmor::DeviceIdentifier const& id, ZelmorScanner* scanner) {
    auto* window = new GuiDevice(this, id, scanner);
    std::erase_if(deviceWindows_, [](wxWeakRef<GuiDevice> const& open) { return !open; });
    deviceWindows_.emplace_back(window);
    window->Show();
}

std::vector<GuiDevice*> GuiMain::deviceWindows() {
    std::vector<GuiDevice*> open;
    for (wxWeakRef<GuiDevice> const& window : deviceWindows_)
        if (window) open.push_back(window.get());
    return open;
}

void GuiMain::OnLocalDeviceActivated(wxListEvent& event) {
    long const row = event.GetIndex();
    if (row < 0 || static_cast<size_t>(row) >= sightings_.entries().size()) return;
    ZelmorScanner::Advertisement const& advertisement = sightings_.entries()[static_cast<size_t>(row)].advertisement;
    // Only the Bluetooth LE models need the scanner, to be found again by address.
    bool const network = isNetworkModel(advertisement.hardwareRevision);
    openDevice(identifierFromAdvertisement(advertisement), network ? nullptr : scanner_.get());
}

void GuiMain::OnRemoteDeviceActivated(wxListEvent& event) {
    long const row = event.GetIndex();
    if (row < 0 || static_cast<size_t>(row) >= store_.remoteDevices().size()) return;
    openDevice(store_.remoteDevices()[static_cast<size_t>(row)], nullptr);
}

void GuiMain::OnRemoteDeviceRightClick(wxListEvent& event) {
    long const row = event.GetIndex();
    if (row < 0) return;
    remoteDevices_->SetItemState(row, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    wxMenu menu;
    menu.Append(GuiMain::kMenuRemoveRemoteDevice, "Remove");
    PopupMenu(&menu);
}

void GuiMain::OnMenuRemoveRemoteDevice(wxCommandEvent&) {
    long const row = remoteDevices_->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED);
    if (row < 0 || static_cast<size_t>(row) >= store_.remoteDevices().size()) return;
    store_.removeRemoteDevice(static_cast<size_t>(row));
}

void GuiMain::OnMenuAddRemoteDevice(wxCommandEvent&) {
    GuiEnterString dialog(this, wxID_ANY, "Enter Zelmor device link", false, false);
    dialog.setPrompt("Device link");
    dialog.setMaxLength(kDeviceLinkMaxLength);
    if (dialog.ShowModal() != wxID_OK) return;
    DeviceLinkResult const link = parseDeviceLink(dialog.value());
    if (!link.identifier) {
        wxMessageDialog(this, "Invalid Zelmor device link", "Error", wxOK | wxICON_ERROR | wxCENTRE).ShowModal();
        return;
    }
    store_.addRemoteDevice(*link.identifier);
}

void GuiMain::OnMenuWifiDirectConnect(wxCommandEvent&) {
    wxMessageDialog instructions(this, kWifiDirectInstructions, "Instructions",
                                 wxOK | wxCANCEL | wxCENTRE | wxSTAY_ON_TOP);
    // Cancel means the user is not on the device's network: nothing to reach.
    if (instructions.ShowModal() != wxID_OK) return;
    openDevice(wifiDirectIdentifier(), scanner_.get());
}

void GuiMain::OnMenuAbout(wxCommandEvent&) { wxMessageDialog(this, aboutText(), "About", wxOK | wxCENTRE).ShowModal(); }
