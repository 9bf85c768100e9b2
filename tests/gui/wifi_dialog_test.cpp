// The WiFi setup dialogs against zelmor-sim devices of both kinds (one
// network, a list of known networks), each change checked on the device with
// zelmorctl. The texts themselves are gui_wifi_text_test.cpp's.
#include <gtest/gtest.h>

#include <wx/checkbox.h>
#include <wx/stattext.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

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

wxListCtrl* networkList(wxWindow& dialog) {
    return wxStaticCast(wxWindow::FindWindowByName("networks", &dialog), wxListCtrl);
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

/// The known networks as zelmorctl reads them from the device, each name with
/// the flags that are set; or why zelmorctl failed.
std::string knownNetworks(std::string const& address) {
    ProgramRun const run = zelmorctl({"--json", "--lan", address, "wifi", "networks"});
    if (run.status != 0) return run.err;
    std::string text;
    for (auto const& network : jsonLines(run)) {
        text += (text.empty() ? "" : "; ") + network["ssid"].get<std::string>();
        for (char const* flag : {"in_use", "failed", "metered"})
            if (network[flag] == true) text += std::string(" ") + flag;
    }
    return text;
}

/// A user who is asked for a network's password, in the texts the setup gives.
class ExpectNetworkPassword : public ExpectEnterString {
public:
    using ExpectEnterString::ExpectEnterString;

protected:
    int OnInvoked(GuiEnterString* dialog) const override {
        EXPECT_EQ(dialog->GetTitle(), "Network Password");
        EXPECT_TRUE(wxWindow::FindWindowByLabel("Enter password for network", dialog));
        return ExpectEnterString::OnInvoked(dialog);
    }
};

/// A user who types a network into GuiWifiAdd and presses Continue.
class ExpectWifiAdd : public wxExpectModalBase<GuiWifiAdd, ExpectWifiAdd> {
public:
    ExpectWifiAdd(wxString name, wxString password, bool metered)
        : name_(std::move(name)), password_(std::move(password)), metered_(metered) {}

protected:
    int OnInvoked(GuiWifiAdd* dialog) const override {
        type(*dialog, GuiWifiAdd::kNameId, name_);
        type(*dialog, GuiWifiAdd::kPasswordId, password_);
        wxStaticCast(dialog->FindWindow(GuiWifiAdd::kMeteredId), wxCheckBox)->SetValue(metered_);
        return continueEnabled(*dialog) ? wxID_OK : wxID_CANCEL;
    }

private:
    wxString name_;
    wxString password_;
    bool metered_;
};

/// An error box that tells when it came: it comes with a reply, later.
class ExpectErrorBox : public ExpectMessage {
public:
    ExpectErrorBox(std::string message, bool& shown) : ExpectMessage("Error", std::move(message)), shown_(shown) {}

protected:
    int OnInvoked(wxMessageDialog* dialog) const override {
        shown_ = true;
        return ExpectMessage::OnInvoked(dialog);
    }

private:
    bool& shown_;
};

// A wrong password: the one-network model cannot connect, the list model
// goes back to the network it knows and marks the entry. The right one then
// joins on both, through the phases the status line shows.
TEST(WifiDialogTest, SetupJoinsTheChosenNetworkWithItsPasswordOnBothKinds) {
    SimFleet fleet({"--no-announce", "--device", "V,wifi=one", "--device", "V"});
    // Each kind: the device, the network and status after the wrong password,
    // and its known networks then and after the right one.
    std::tuple<size_t, std::string, std::string, std::string, std::string> const kinds[] = {
        {0, "Skipper", "Cannot connect", "Invalid request.\n", "Invalid request.\n"},
        {1, "HarbourNet", "Connected (127.0.0.3)", "HarbourNet in_use; Skipper failed", "HarbourNet; Skipper in_use"}};
    for (auto const& [index, networkAfterWrong, statusAfterWrong, knownAfterWrong, knownAfterRight] : kinds) {
        std::string const address = fleet.device(index).address;
        SCOPED_TRACE(address);
        ConnectedDevice link(address);
        GuiWifiSetup dialog(nullptr, link.device);
        dialog.Show();
        EXPECT_EQ(dialog.GetTitle(), "Zelmor WiFi Setup");
        wxListCtrl* const networks = networkList(dialog);
        ASSERT_TRUE(waitFor([&] { return networks->FindItem(-1, "Skipper") >= 0; }));
        EXPECT_TRUE(showsState(dialog, "HarbourNet", "Connected (" + address + ")"));
        long const row = networks->FindItem(-1, "Skipper");
        EXPECT_EQ(cell(networks, row, 2), "WPA3");
        if (index == 0) screenshot(dialog, "wifi_setup");

        wxTEST_DIALOG(activate(networks, row), ExpectNetworkPassword("heron"));
        EXPECT_TRUE(showsState(dialog, "Skipper", "Connecting ..."));
        EXPECT_TRUE(showsState(dialog, networkAfterWrong, statusAfterWrong));
        EXPECT_EQ(knownNetworks(address), knownAfterWrong);

        wxTEST_DIALOG(activate(networks, networks->FindItem(-1, "Skipper")), ExpectNetworkPassword("aye-aye-skipper"));
        EXPECT_TRUE(showsState(dialog, "Skipper", "Connecting ..."));
        EXPECT_TRUE(showsState(dialog, "Skipper", "Connected (" + address + ")"));
        auto const info = jsonResult(zelmorctl({"--json", "--lan", address, "info"}));
        EXPECT_EQ(std::tie(info["wifi_network"], info["wifi_status"], info["ip"]),
                  std::make_tuple("Skipper", "connected", address));
        EXPECT_EQ(knownNetworks(address), knownAfterRight);
    }
}

std::string shownRows(wxListCtrl* list) {
    std::string rows;
    for (long row = 0; row < list->GetItemCount(); ++row)
        rows += (row ? "; " : "") + cell(list, row, 0) + ": " + cell(list, row, 1);
    return rows;
}

// Known networks added, updated and removed; removing the one in use makes
// the device try the other, whose wrong password shows as FAILED until the
// right one is given.
TEST(WifiDialogTest, KnownNetworksAreAddedAndRemovedAndAFailedJoinShows) {
    SimFleet fleet({"--no-announce", "--device", "V"});
    std::string const address = fleet.device(0).address;
    ConnectedDevice link(address);
    GuiMultipleWifiSetup dialog(nullptr, link.device);
    dialog.Show();
    EXPECT_EQ(dialog.GetTitle(), "Zelmor WiFi Setup");
    wxListCtrl* const networks = networkList(dialog);
    std::string const connected = "Connected (" + address + ")";
    ASSERT_TRUE(waitFor([&] { return shownRows(networks) == "HarbourNet: password protected, non-metered"; }));
    screenshot(dialog, "multiple_wifi_setup");

    // Each row: what the user does, then the list and the state shown.
    auto const add = [&](char const* password) {
        wxTEST_DIALOG(click(dialog, GuiMultipleWifiSetup::kAddId), ExpectWifiAdd("Skipper", password, true));
    };
    auto const removeFirst = [&] {
        networks->SetItemState(0, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
        click(dialog, GuiMultipleWifiSetup::kRemoveId);
    };
    std::tuple<std::function<void()>, std::string, std::string, std::string> const steps[] = {
        {[&] { add("heron"); }, "HarbourNet: password protected, non-metered; Skipper: password protected, metered",
         "HarbourNet", connected},
        {removeFirst, "Skipper: password protected, metered, FAILED", "Skipper", "Cannot connect"},
        {[&] { add("aye-aye-skipper"); }, "Skipper: password protected, metered", "Skipper", connected},
    };
    for (auto const& [act, rows, network, status] : steps) {
        SCOPED_TRACE(rows);
        act();
        std::string const& wanted = rows;
        EXPECT_TRUE(waitFor([&] { return shownRows(networks) == wanted; })) << shownRows(networks);
        EXPECT_TRUE(showsState(dialog, network, status));
    }
    EXPECT_EQ(knownNetworks(address), "Skipper in_use metered");
}

// The first request of each dialog: refused by a locked device, and the list
// unknown to a device that keeps one network.
TEST(WifiDialogTest, RefusedRequestsAreTold) {
    std::tuple<std::vector<std::string>, size_t, bool, std::string> const cases[] = {
        {{"--no-announce"}, 2, false, "Feature is locked by user password."},
        {{"--no-announce"}, 2, true, "Feature is locked by user password."},
        {{"--no-announce", "--device", "V,wifi=one"}, 0, true, "Invalid request."},
    };
    for (auto const& [options, index, list, message] : cases) {
        SCOPED_TRACE(message);
        SimFleet fleet(options);
        ConnectedDevice link(fleet.device(index).address);
        bool shown = false;
        wxTEST_DIALOG(
            {
                std::unique_ptr<wxDialog> dialog;
                if (list)
                    dialog = std::make_unique<GuiMultipleWifiSetup>(nullptr, link.device);
                else
                    dialog = std::make_unique<GuiWifiSetup>(nullptr, link.device);
                dialog->Show();
                EXPECT_TRUE(waitFor([&] { return shown; }));
            },
            ExpectErrorBox(message, shown));
    }
}

TEST(WifiDialogTest, AddNetworkTellsWhatIsWrongOnEveryChange) {
    GuiWifiAdd dialog(nullptr);
    EXPECT_EQ(dialog.GetTitle(), "Add WiFi Network");
    EXPECT_EQ(dialog.FindWindow(GuiWifiAdd::kMeteredId)->GetLabel(),
              "Is this network metered ? (mobile hotspot or limited data)");
    EXPECT_FALSE(continueEnabled(dialog));
    std::tuple<wxWindowID, wxString, std::string> const steps[] = {
        {GuiWifiAdd::kNameId, "Skipper", ""},
        {GuiWifiAdd::kPasswordId, wxString(65, 'p'), "password is too long"},
        {GuiWifiAdd::kPasswordId, "aye-aye-skipper", ""},
    };
    for (auto const& [field, text, problem] : steps) {
        type(dialog, field, text);
        EXPECT_EQ(wxStaticCast(wxWindow::FindWindowByName("message", &dialog), wxStaticText)->GetLabel(), problem);
        EXPECT_EQ(continueEnabled(dialog), problem.empty());
    }
    wxStaticCast(dialog.FindWindow(GuiWifiAdd::kMeteredId), wxCheckBox)->SetValue(true);
    EXPECT_EQ(dialog.network(), (Zelmor::WifiNetwork{"Skipper", "aye-aye-skipper", 3, true}));
    dialog.Show();
    saveScreenshot(dialog, "wifi_add");
}

}  // namespace
