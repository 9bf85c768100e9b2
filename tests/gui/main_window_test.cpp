// The main window against zelmor-sim: the devices that announce themselves on
// the LAN appear in "Local Devices" with their identity and readings, open on
// a double click, and go once they fall silent; the Help and Device menus'
// boxes.
#include <gtest/gtest.h>

#include <wx/listctrl.h>
#include <wx/statusbr.h>

#include "about_text.h"
#include "dialog_user.h"
#include "gui_device.h"
#include "gui_main.h"
#include "main_window_user.h"
#include "screenshot.h"
#include "zelmorctl_fleet.h"

namespace {

TEST(GuiMainTest, LocalDevicesListTheAnnouncingDevicesUntilTheyFallSilent) {
    SimFleet fleet({});
    MainWindowUser user("zelmor-gui-main-test");
    wxListCtrl* const list = user.window().localDevicesList();
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
    EXPECT_FALSE(saveScreenshot(user.window(), "main_window").empty());

    // A double click opens the device over the LAN.
    user.activate(list, lan);
    ASSERT_EQ(user.window().deviceWindows().size(), 1u);
    GuiDevice* const device = user.window().deviceWindows().front();
    EXPECT_TRUE(waitFor([&] { return device->GetStatusBar()->GetStatusText() == "Connected"; }, 20000))
        << device->GetStatusBar()->GetStatusText();
    EXPECT_EQ(device->GetTitle(), "Zelmor Manager: " + fleet.device(0).name);
    device->Close(true);
    ASSERT_TRUE(waitFor([&] { return user.window().deviceWindows().empty(); }, 10000));

    // Silent devices stay listed for ten seconds after their last announcement.
    fleet.kill();
    EXPECT_EQ(list->GetItemCount(), 3);
    EXPECT_TRUE(waitFor([&] { return list->GetItemCount() == 0; }, 20000)) << list->GetItemCount();
}

TEST(GuiMainTest, AboutAndWifiDirectInstructions) {
    MainWindowUser user("zelmor-gui-menus-test");
    wxTEST_DIALOG(user.window().ProcessCommand(wxID_ABOUT), ExpectMessage("About", aboutText()));
    // Cancel: the computer is not on the device's own network, so no window opens.
    wxTEST_DIALOG(user.window().ProcessCommand(GuiMain::kMenuWifiDirectConnect),
                  ExpectMessage("Instructions",
                                "Please power up your WiFi Zelmor battery monitor. \nIf you previously disabled the AP "
                                "mode of your device, power cycle it.\nUse your computer WiFi settings to connect to "
                                "the device.\bYour device will show up like: ZLMR_12A456B8.\nThe password is: relayfox",
                                wxID_CANCEL));
    EXPECT_TRUE(user.window().deviceWindows().empty());
}

}  // namespace
