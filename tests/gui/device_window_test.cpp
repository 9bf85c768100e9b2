// The device window against zelmor-sim: connecting to a LAN device, reading
// its information and showing its live readings.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <wx/msgdlg.h>
#include <wx/statusbr.h>

#include <cstdlib>
#include <filesystem>

#include "dialog_user.h"
#include "gui_device.h"
#include "gui_wait.h"
#include "screenshot.h"
#include "zelmorctl_fleet.h"

namespace {

/// A fresh home for the window's local store, removed afterwards.
class TemporaryHome {
public:
    TemporaryHome() : path_(std::filesystem::temp_directory_path() / "zelmor-gui-device-test") {
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
        setenv("HOME", path_.c_str(), 1);
    }
    ~TemporaryHome() { std::filesystem::remove_all(path_); }

private:
    std::filesystem::path path_;
};

Zelmor::DeviceIdentifier lanIdentifier(SimFleet::Device const& device) {
    Zelmor::DeviceIdentifier id;
    id.name = device.name;
    id.hardwareRevision = static_cast<uint8_t>(device.revision);
    id.ipAddress = inet_addr(device.address.c_str());
    return id;
}

std::string statusOf(GuiDevice& window) { return window.GetStatusBar()->GetStatusText().utf8_string(); }

std::string rowValue(GuiDevice const& window, std::string const& label) {
    for (PanelRow const& row : window.shownRows())
        if (row.label == label) return row.value;
    return "(no row)";
}

TEST(GuiDeviceTest, LanDeviceConnectsAndShowsItsLiveReadings) {
    TemporaryHome home;
    SimFleet fleet({});
    auto* window = new GuiDevice(nullptr, lanIdentifier(fleet.device(0)), nullptr);
    window->Show();
    ASSERT_TRUE(waitFor([&] { return statusOf(*window) == "Connected"; }, 20000)) << statusOf(*window);
    ASSERT_TRUE(waitFor([&] { return !window->shownRows().empty(); }, 20000));
    EXPECT_NE(rowValue(*window, "Voltage 1").find(" V"), std::string::npos);
    EXPECT_NE(rowValue(*window, "Current").find(" A"), std::string::npos);
    EXPECT_EQ(rowValue(*window, "Power Status"), "ON");
    EXPECT_EQ(window->GetTitle(), "Zelmor Manager: " + fleet.device(0).name);
    EXPECT_FALSE(saveScreenshot(*window, "device_window").empty());
    window->Close(true);
    ASSERT_TRUE(waitFor([&] { return wxTopLevelWindows.IsEmpty(); }, 5000));
}

TEST(GuiDeviceTest, LockedDeviceAsksForThePasswordUntilItIsRight) {
    TemporaryHome home;
    SimFleet fleet({});
    // The third device of the default fleet is locked with "kingfisher".
    auto* window = new GuiDevice(nullptr, lanIdentifier(fleet.device(2)), nullptr);
    window->Show();
    wxTEST_DIALOG(ASSERT_TRUE(waitFor([&] { return !window->shownRows().empty(); }, 20000)),
                  ExpectEnterString("heron", ""), wxExpectModal<wxMessageDialog>(wxID_OK).Describe("Invalid password."),
                  ExpectEnterString("kingfisher", ""));
    EXPECT_EQ(statusOf(*window), "Connected");
    window->Close(true);
    ASSERT_TRUE(waitFor([&] { return wxTopLevelWindows.IsEmpty(); }, 5000));
}

}  // namespace
