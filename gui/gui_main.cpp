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
#include "local_device_cells.h"
#include "local_store.h"
#include "window_handle.h"

namespace {

constexpr size_t kDeviceLinkMaxLength = 255;

// The backspace between "device." and "Your" belongs to the text.
constexpr char kWifiDirectInstructions[] =
    "Please power up your WiFi Zelmor battery monitor. \nIf you previously disabled the AP mode of your device, "
    "power cycle it.\nUse your computer WiFi settings to connect to the device.\bYour device will show up like: "
    "ZLMR_12A456B8.\nThe password is: relayfox";

wxListCtrl* makeList(wxWindow* parent, wxSizer* sizer, char const* title) {
    auto* box = new wxStaticBoxSizer(wxVERTICAL, parent, title);
    auto* list =
        new wxListCtrl(box->GetStaticBox(), wxID_ANY, wxDefaultPosition, wxDefaultSize, wxLC_REPORT | wxLC_SINGLE_SEL);
    box->Add(list, 1, wxEXPAND | wxALL, 4);
    sizer->Add(box, 1, wxEXPAND | wxALL, 4);
    return list;
}

void setRow(wxListCtrl* list, long row, std::vector<std::string> const& cells) {
    for (size_t column = 0; column < cells.size(); ++column)
        list->SetItem(row, static_cast<int>(column), wxString::FromUTF8(cells[column]));
}

}  // namespace

GuiMain::GuiMain(LocalStore& store, std::unique_ptr<ZelmorScanner> scanner)
    : wxFrame(nullptr, wxID_ANY, kProgramName, wxDefaultPosition, wxSize(1300, 600)),
      store_(store),
      scanner_(std::move(scanner)),
      ageingTimer_(this, kAgeingTimerId) {
    buildMenus();

    auto* sizer = new wxBoxSizer(wxVERTICAL);
    localDevices_ = makeList(this, sizer, "Local Devices");
    remoteDevices_ = makeList(this, sizer, "Remote Devices");
    SetSizer(sizer);

    for (ListColumn const& column : localDeviceColumns())
        localDevices_->AppendColumn(column.title, column.rightAligned ? wxLIST_FORMAT_RIGHT : wxLIST_FORMAT_LEFT,
                                    column.width);
    remoteDevices_->AppendColumn("Name", wxLIST_FORMAT_LEFT, 200);
    remoteDevices_->AppendColumn("Model", wxLIST_FORMAT_LEFT, 120);
    remoteDevices_->AppendColumn("Serial Number", wxLIST_FORMAT_LEFT, 150);

    localDevices_->Bind(wxEVT_LIST_ITEM_ACTIVATED, &GuiMain::OnLocalDeviceActivated, this);
    remoteDevices_->Bind(wxEVT_LIST_ITEM_ACTIVATED, &GuiMain::OnRemoteDeviceActivated, this);
    remoteDevices_->Bind(wxEVT_LIST_ITEM_RIGHT_CLICK, &GuiMain::OnRemoteDeviceRightClick, this);
    Bind(wxEVT_TIMER, &GuiMain::OnAgeingTimer, this, kAgeingTimerId);

    store_.setRemoteDevicesObserver([this] { rebuildRemoteDevices(); });
    rebuildRemoteDevices();

    // The scanner's threads end in the destructor, before the window goes.
    scanner_->setAdvertisementCallback(
        [self = anchor_.handle(*this)](ZelmorScanner::Advertisement const& advertisement) {
            postToWindow(self, [advertisement](GuiMain& window) { window.takeAdvertisement(advertisement); });
        });
    scanner_->startWifiScan();
    scanner_->initBle();
    ageingTimer_.Start(kAgeingIntervalMs);
}

GuiMain::~GuiMain() {
    ageingTimer_.Stop();
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

void GuiMain::takeAdvertisement(ZelmorScanner::Advertisement const& advertisement) {
    LocalDeviceList::Placement const placement = sightings_.take(advertisement, wxGetUTCTimeMillis().GetValue());
    long const row = static_cast<long>(placement.row);
    if (placement.added) localDevices_->InsertItem(row, wxString());
    setRow(localDevices_, row, localDeviceCells(advertisement));
}

void GuiMain::OnAgeingTimer(wxTimerEvent&) {
    for (size_t row : sightings_.age(wxGetUTCTimeMillis().GetValue()))
        localDevices_->DeleteItem(static_cast<long>(row));
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
