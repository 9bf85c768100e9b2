// "Remote Devices" in the main window against zelmor-sim: adding a device by
// its link, opening it through the hub relay and removing it again, with
// "cloud_devices.cfg" following every change.
#include <gtest/gtest.h>

#include <wx/statusbr.h>

#include <filesystem>
#include <fstream>

#include "dialog_user.h"
#include "gui_device.h"
#include "main_window_user.h"
#include "zelmorctl_fleet.h"

namespace {

std::string fileText(std::filesystem::path const& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST(GuiRemoteDevicesTest, AddedDeviceIsListedAndStoredAndAnInvalidLinkIsRefused) {
    SimFleet fleet({"--no-announce"});
    MainWindowUser user("zelmor-gui-remote-test");
    wxTEST_DIALOG(user.window().ProcessCommand(GuiMain::kMenuAddRemoteDevice),
                  ExpectEnterString("https://example.invalid/?n=zz", ""),
                  ExpectMessage("Error", "Invalid Zelmor device link"));
    EXPECT_EQ(user.window().remoteDevicesList()->GetItemCount(), 0);

    wxTEST_DIALOG(user.window().ProcessCommand(GuiMain::kMenuAddRemoteDevice),
                  ExpectEnterString(wxString::FromUTF8(fleet.device(1).link), ""));
    wxListCtrl* const list = user.window().remoteDevicesList();
    ASSERT_EQ(list->GetItemCount(), 1);
    EXPECT_EQ(cell(list, 0, 0), fleet.device(1).name);
    EXPECT_EQ(cell(list, 0, 1), "Zelmor-V");
    EXPECT_EQ(cell(list, 0, 2), fleet.device(1).serial);
    user.close();

    // The file holds the link, privately, and a store made afresh reads it back.
    std::filesystem::path const file = user.dataDir() / "cloud_devices.cfg";
    EXPECT_EQ(fileText(file), fleet.device(1).link + "\n");
    EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    LocalStore reread(user.dataDir());
    ASSERT_EQ(reread.remoteDevices().size(), 1u);
    EXPECT_EQ(reread.remoteDevices()[0].name, fleet.device(1).name);
}

TEST(GuiRemoteDevicesTest, RemoteDeviceOpensThroughTheHubAndRemovingItRewritesTheFile) {
    // No announcements: the devices are reachable through the hub relay only.
    SimFleet fleet({"--no-announce"});
    MainWindowUser user("zelmor-gui-hub-test");
    for (size_t device : {1, 0}) {
        wxTEST_DIALOG(user.window().ProcessCommand(GuiMain::kMenuAddRemoteDevice),
                      ExpectEnterString(wxString::FromUTF8(fleet.device(device).link), ""));
    }
    wxListCtrl* const list = user.window().remoteDevicesList();
    ASSERT_EQ(list->GetItemCount(), 2);

    user.activate(list, 0);
    ASSERT_EQ(user.window().deviceWindows().size(), 1u);
    GuiDevice* const device = user.window().deviceWindows().front();
    EXPECT_TRUE(waitFor(
        [&] {
            return device->GetStatusBar()->GetStatusText() == "Connected" && !device->shownRows().empty();
        },
        20000))
        << device->GetStatusBar()->GetStatusText();
    EXPECT_EQ(device->GetTitle(), "Zelmor Manager: " + fleet.device(1).name);
    device->Close(true);
    EXPECT_TRUE(waitFor([&] { return user.window().deviceWindows().empty(); }, 10000));

    user.select(list, 0);
    user.choosePopupItem(GuiMain::kMenuRemoveRemoteDevice);
    ASSERT_EQ(list->GetItemCount(), 1);
    EXPECT_EQ(cell(list, 0, 0), fleet.device(0).name);
    EXPECT_EQ(fileText(user.dataDir() / "cloud_devices.cfg"), fleet.device(0).link + "\n");
}

}  // namespace
