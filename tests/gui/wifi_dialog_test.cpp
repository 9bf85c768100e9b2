// The WiFi setup dialogs against zelmor-sim devices of both kinds, each change
// checked on the device with zelmorctl; texts and joins are the unit tests'.
#include <gtest/gtest.h>

#include <wx/checkbox.h>
#include <wx/stattext.h>

#include <string>
#include <tuple>
#include <utility>

#include "connected_device.h"
#include "gui_multiple_wifi_setup.h"
#include "gui_user.h"
#include "gui_wifi_add.h"
#include "gui_wifi_setup.h"
#include "zelmorctl_fleet.h"

namespace {

std::string label(wxWindow& dialog, char const* name) {
    return wxStaticCast(wxWindow::FindWindowByName(name, &dialog), wxStaticText)->GetLabelText().utf8_string();
}

/// Waits until the dialog shows this network and status.
bool showsState(wxWindow& dialog, std::string const& network, std::string const& status) {
    return waitFor([&] { return label(dialog, "wifi_network") == network && label(dialog, "wifi_status") == status; });
}

/// The rows just added are drawn when the event loop is idle next.
void screenshot(wxWindow& dialog, std::string const& name) {
    dialog.Refresh();
    dialog.Update();
    saveScreenshot(dialog, name);
}

void click(wxWindow& dialog, wxWindowID id) {
    wxCommandEvent event(wxEVT_BUTTON, id);
    event.SetEventObject(dialog.FindWindow(id));
    dialog.FindWindow(id)->GetEventHandler()->ProcessEvent(event);
}

// A network chosen from the scan, with its password: the status line follows
// the device through "Connecting ..." to connected, whichever kind it is.
TEST(WifiDialogTest, SetupJoinsTheChosenNetworkWithItsPasswordOnBothKinds) {
    SimFleet fleet({"--no-announce", "--device", "V,wifi=one", "--device", "V"});
    for (size_t index : {0, 1}) {
        std::string const address = fleet.device(index).address;
        SCOPED_TRACE(address);
        ConnectedDevice link(address);
        GuiWifiSetup dialog(nullptr, link.device);
        dialog.Show();
        wxListCtrl* const networks = wxStaticCast(wxWindow::FindWindowByName("networks", &dialog), wxListCtrl);
        ASSERT_TRUE(waitFor([&] { return networks->FindItem(-1, "Skipper") >= 0; }));
        long const row = networks->FindItem(-1, "Skipper");
        EXPECT_EQ(cell(networks, row, 2), "WPA3");
        if (index == 0) screenshot(dialog, "wifi_setup");

        wxTEST_DIALOG(activate(networks, row), ExpectEnterString("aye-aye-skipper"));
        EXPECT_TRUE(showsState(dialog, "Skipper", "Connecting ..."));
        EXPECT_TRUE(showsState(dialog, "Skipper", "Connected (" + address + ")"));
        auto const info = jsonResult(zelmorctl({"--json", "--lan", address, "info"}));
        EXPECT_EQ(std::tie(info["wifi_network"], info["wifi_status"], info["ip"]),
                  std::make_tuple("Skipper", "connected", address));
    }
}

/// A user who adds the metered network Skipper with this password in GuiWifiAdd.
class ExpectWifiAdd : public wxExpectModalBase<GuiWifiAdd, ExpectWifiAdd> {
public:
    explicit ExpectWifiAdd(wxString password) : password_(std::move(password)) {}

protected:
    int OnInvoked(GuiWifiAdd* dialog) const override {
        type(*dialog, GuiWifiAdd::kNameId, "Skipper");
        type(*dialog, GuiWifiAdd::kPasswordId, password_);
        wxStaticCast(dialog->FindWindow(GuiWifiAdd::kMeteredId), wxCheckBox)->SetValue(true);
        return continueEnabled(*dialog) ? wxID_OK : wxID_CANCEL;
    }

private:
    wxString password_;
};

std::string shownRows(wxListCtrl* list) {
    std::string rows;
    for (long row = 0; row < list->GetItemCount(); ++row)
        rows += (row ? "; " : "") + cell(list, row, 0) + ": " + cell(list, row, 1);
    return rows;
}

// Removing the network in use makes the device try the other, whose wrong
// password shows as FAILED until the right one is added.
TEST(WifiDialogTest, KnownNetworksAreAddedAndRemovedAndAFailedJoinShows) {
    SimFleet fleet({"--no-announce", "--device", "V"});
    std::string const address = fleet.device(0).address;
    ConnectedDevice link(address);
    GuiMultipleWifiSetup dialog(nullptr, link.device);
    dialog.Show();
    wxListCtrl* const networks = wxStaticCast(wxWindow::FindWindowByName("networks", &dialog), wxListCtrl);
    // The rows the dialog shows, then each known network's name and flags as
    // zelmorctl reads them from the device.
    auto const expectList = [&](std::string const& rows, std::string const& known) {
        EXPECT_TRUE(waitFor([&] { return shownRows(networks) == rows; })) << shownRows(networks);
        std::string device;
        for (auto const& network : jsonLines(zelmorctl({"--json", "--lan", address, "wifi", "networks"}))) {
            device += (device.empty() ? "" : "; ") + network["ssid"].get<std::string>();
            for (char const* flag : {"in_use", "failed", "metered"})
                if (network[flag] == true) device += std::string(" ") + flag;
        }
        EXPECT_EQ(device, known);
    };
    expectList("HarbourNet: password protected, non-metered", "HarbourNet in_use");
    screenshot(dialog, "multiple_wifi_setup");

    wxTEST_DIALOG(click(dialog, GuiMultipleWifiSetup::kAddId), ExpectWifiAdd("heron"));
    expectList("HarbourNet: password protected, non-metered; Skipper: password protected, metered",
               "HarbourNet in_use; Skipper metered");
    networks->SetItemState(0, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    click(dialog, GuiMultipleWifiSetup::kRemoveId);
    expectList("Skipper: password protected, metered, FAILED", "Skipper failed metered");
    EXPECT_TRUE(showsState(dialog, "Skipper", "Cannot connect"));
    wxTEST_DIALOG(click(dialog, GuiMultipleWifiSetup::kAddId), ExpectWifiAdd("aye-aye-skipper"));
    EXPECT_TRUE(showsState(dialog, "Skipper", "Connected (" + address + ")"));
    expectList("Skipper: password protected, metered", "Skipper in_use metered");
}

// The first request of each dialog refused: the scan by a locked device, the
// list by a device that keeps one network.
TEST(WifiDialogTest, RefusedRequestsAreTold) {
    SimFleet fleet({"--no-announce", "--device", "V,user=kingfisher", "--device", "V,wifi=one"});
    ConnectedDevice locked(fleet.device(0).address);
    ConnectedDevice oneNetwork(fleet.device(1).address);
    int const answered = ExpectMessage::answered();
    wxTEST_DIALOG(
        {
            GuiWifiSetup setup(nullptr, locked.device);
            setup.Show();
            EXPECT_TRUE(waitForMessage(answered));
            GuiMultipleWifiSetup list(nullptr, oneNetwork.device);
            list.Show();
            EXPECT_TRUE(waitForMessage(answered + 1));
        },
        ExpectMessage("Error", "Feature is locked by user password."), ExpectMessage("Error", "Invalid request."));
}

// Why an entry cannot be added shows as it is typed, with Continue disabled.
TEST(WifiDialogTest, AddNetworkTellsWhatIsWrongAsItIsTyped) {
    GuiWifiAdd dialog(nullptr);
    EXPECT_FALSE(continueEnabled(dialog));
    std::tuple<wxWindowID, wxString, std::string> const steps[] = {
        {GuiWifiAdd::kNameId, "Skipper", ""},
        {GuiWifiAdd::kPasswordId, wxString(65, 'p'), "password is too long"},
    };
    for (auto const& [field, text, problem] : steps) {
        type(dialog, field, text);
        EXPECT_EQ(label(dialog, "message"), problem);
        EXPECT_EQ(continueEnabled(dialog), problem.empty());
    }
    dialog.Show();
    saveScreenshot(dialog, "wifi_add");
}

}  // namespace
