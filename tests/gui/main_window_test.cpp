// The main window against zelmor-sim: the devices that announce themselves on
// the LAN appear in "Local Devices" with their identity and readings.
#include <gtest/gtest.h>

#include <wx/listctrl.h>
#include <wx/msgdlg.h>

#include <cstdlib>
#include <filesystem>

#include "dialog_user.h"
#include "gui_main.h"
#include "gui_wait.h"
#include "local_store.h"
#include "screenshot.h"
#include "zelmor_scanner_impl.h"
#include "zelmorctl_fleet.h"

namespace {

std::string cell(wxListCtrl* list, long row, int column) { return list->GetItemText(row, column).utf8_string(); }

long rowNamed(wxListCtrl* list, std::string const& name) {
    for (long row = 0; row < list->GetItemCount(); ++row)
        if (cell(list, row, 0) == name) return row;
    return -1;
}

TEST(GuiMainTest, LocalDevicesListTheAnnouncingLanAndWifiDevices) {
    SimFleet fleet({});
    std::filesystem::path const dataDir = std::filesystem::temp_directory_path() / "zelmor-gui-main-test";
    std::filesystem::remove_all(dataDir);
    LocalStore store(dataDir);
    auto* window = new GuiMain(store, std::make_unique<ZelmorScannerImpl>());
    window->Show();
    wxListCtrl* const list = window->localDevicesList();
    ASSERT_TRUE(waitFor([&] { return list->GetItemCount() == 3; }, 15000)) << list->GetItemCount();

    long const lan = rowNamed(list, fleet.device(0).name);
    ASSERT_GE(lan, 0);
    EXPECT_EQ(cell(list, lan, 1), "Zelmor-K");
    EXPECT_EQ(cell(list, lan, 2), fleet.device(0).serial);
    EXPECT_EQ(cell(list, lan, 14), fleet.device(0).address);
    EXPECT_NE(cell(list, lan, 4).find(" V"), std::string::npos);
    long const wifi = rowNamed(list, fleet.device(1).name);
    ASSERT_GE(wifi, 0);
    EXPECT_EQ(cell(list, wifi, 1), "Zelmor-V");
    EXPECT_NE(cell(list, wifi, 15).find("dBm"), std::string::npos);

    EXPECT_FALSE(saveScreenshot(*window, "main_window").empty());
    // Destroyed when the loop is idle; its scanner holds the announcement port till then.
    window->Destroy();
    ASSERT_TRUE(waitFor([] { return wxTopLevelWindows.IsEmpty(); }, 5000));
    std::filesystem::remove_all(dataDir);
}

TEST(GuiMainTest, AddedRemoteDeviceIsListedAndStoredAndAnInvalidLinkIsRefused) {
    SimFleet fleet({});
    std::filesystem::path const dataDir = std::filesystem::temp_directory_path() / "zelmor-gui-remote-test";
    std::filesystem::remove_all(dataDir);
    {
        LocalStore store(dataDir);
        auto* window = new GuiMain(store, std::make_unique<ZelmorScannerImpl>());
        window->Show();
        wxTEST_DIALOG(window->ProcessCommand(GuiMain::kMenuAddRemoteDevice),
                      ExpectEnterString("https://example.invalid/?n=zz", ""),
                      wxExpectModal<wxMessageDialog>(wxID_OK).Describe("Invalid Zelmor device link"));
        EXPECT_EQ(window->remoteDevicesList()->GetItemCount(), 0);

        wxTEST_DIALOG(window->ProcessCommand(GuiMain::kMenuAddRemoteDevice),
                      ExpectEnterString(wxString::FromUTF8(fleet.device(1).link), ""));
        ASSERT_EQ(window->remoteDevicesList()->GetItemCount(), 1);
        EXPECT_EQ(cell(window->remoteDevicesList(), 0, 0), fleet.device(1).name);
        ASSERT_EQ(store.remoteDevices().size(), 1u);

        window->Destroy();
        ASSERT_TRUE(waitFor([] { return wxTopLevelWindows.IsEmpty(); }, 5000));
    }
    // The file holds the link, and a store made afresh reads it back.
    LocalStore reread(dataDir);
    ASSERT_EQ(reread.remoteDevices().size(), 1u);
    EXPECT_EQ(reread.remoteDevices()[0].name, fleet.device(1).name);
    EXPECT_EQ(std::filesystem::status(dataDir / "cloud_devices.cfg").permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::filesystem::remove_all(dataDir);
}

}  // namespace
