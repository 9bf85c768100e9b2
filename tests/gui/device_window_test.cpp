// The device window against zelmor-sim: connecting to a LAN device, reading
// its information and showing its live readings.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <wx/statusbr.h>

#include <cstdlib>
#include <filesystem>

#include "gui_device.h"
#include "gui_wait.h"
#include "screenshot.h"
#include "zelmorctl_fleet.h"

namespace {

std::string rowValue(GuiDevice const& window, std::string const& label) {
    for (PanelRow const& row : window.shownRows())
        if (row.label == label) return row.value;
    return "(no row)";
}

TEST(GuiDeviceTest, LanDeviceConnectsAndShowsItsLiveReadings) {
    // The window keeps its store under the home directory.
    std::filesystem::path const home = std::filesystem::temp_directory_path() / "zelmor-gui-device-test";
    std::filesystem::remove_all(home);
    std::filesystem::create_directories(home);
    setenv("HOME", home.c_str(), 1);

    SimFleet fleet({});
    Zelmor::DeviceIdentifier id;
    id.name = fleet.device(0).name;
    id.hardwareRevision = static_cast<uint8_t>(fleet.device(0).revision);
    id.ipAddress = inet_addr(fleet.device(0).address.c_str());
    auto* window = new GuiDevice(nullptr, id, nullptr);
    window->Show();
    ASSERT_TRUE(waitFor([&] { return window->GetStatusBar()->GetStatusText() == "Connected"; }, 20000))
        << window->GetStatusBar()->GetStatusText();
    ASSERT_TRUE(waitFor([&] { return !window->shownRows().empty(); }, 20000));
    EXPECT_NE(rowValue(*window, "Voltage 1").find(" V"), std::string::npos);
    EXPECT_NE(rowValue(*window, "Current").find(" A"), std::string::npos);
    EXPECT_EQ(rowValue(*window, "Power Status"), "ON");
    EXPECT_EQ(window->GetTitle(), "Zelmor Manager: " + fleet.device(0).name);
    EXPECT_FALSE(saveScreenshot(*window, "device_window").empty());
    window->Close(true);
    ASSERT_TRUE(waitFor([&] { return wxTopLevelWindows.IsEmpty(); }, 5000));
    std::filesystem::remove_all(home);
}

}  // namespace
