// The device window against zelmor-sim: connecting to a LAN device, reading
// its information, asking for the password of a locked one, showing the live
// readings, and ending the link from either side.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <wx/statusbr.h>

#include <fmt/format.h>

#include "dialog_user.h"
#include "gui_device.h"
#include "gui_wait.h"
#include "screenshot.h"
#include "zelmorctl_fleet.h"

namespace {

Zelmor::DeviceIdentifier lanIdentifier(std::string const& name, int revision, std::string const& address) {
    Zelmor::DeviceIdentifier id;
    id.name = name;
    id.hardwareRevision = static_cast<uint8_t>(revision);
    id.ipAddress = inet_addr(address.c_str());
    return id;
}

Zelmor::DeviceIdentifier lanIdentifier(SimFleet::Device const& device) {
    return lanIdentifier(device.name, device.revision, device.address);
}

std::string statusOf(GuiDevice& window) { return window.GetStatusBar()->GetStatusText().utf8_string(); }

std::string rowValue(GuiDevice const& window, std::string const& label) {
    for (PanelRow const& row : window.shownRows())
        if (row.label == label) return row.value;
    return "(no row)";
}

GuiDevice* openReadyWindow(Zelmor::DeviceIdentifier const& id) {
    auto* window = new GuiDevice(nullptr, id, nullptr);
    window->Show();
    EXPECT_TRUE(waitFor([&] { return statusOf(*window) == "Connected" && !window->shownRows().empty(); }, 20000))
        << statusOf(*window);
    return window;
}

bool allWindowsGone() {
    return waitFor([] { return wxTopLevelWindows.IsEmpty(); }, 10000);
}

/// The readings that change slowly, as the panel shows them, from what
/// zelmorctl reads off the same device.
std::vector<PanelRow> steadyRowsFromZelmorctl(std::string const& address) {
    nlohmann::json const reading = jsonResult(zelmorctl({"--lan", address, "monitor", "--count", "1", "--json"}));
    return {
        {"Voltage 1", fmt::format("{:.3f} V", reading["voltage1"].get<double>())},
        {"Voltage 2", fmt::format("{:.3f} V", reading["voltage2"].get<double>())},
        {"Battery SoC", fmt::format("{} %", reading["soc"].get<int>())},
        {"Temperature", fmt::format("{:.0f} °C", reading["temperature"].get<double>())},
        {"Power Status", reading["power_status"].get<std::string>()},
    };
}

bool showsRows(GuiDevice const& window, std::vector<PanelRow> const& rows) {
    for (PanelRow const& row : rows)
        if (rowValue(window, row.label) != row.value) return false;
    return true;
}

TEST(GuiDeviceTest, LanDeviceConnectsAndShowsWhatTheDeviceReports) {
    SimFleet fleet({});
    GuiDevice* window = openReadyWindow(lanIdentifier(fleet.device(0)));
    EXPECT_EQ(window->GetTitle(), "Zelmor Manager: " + fleet.device(0).name);
    EXPECT_NE(rowValue(*window, "Current").find(" A"), std::string::npos);
    EXPECT_NE(rowValue(*window, "Device Clock"), "(no row)");

    // The simulated battery moves on between two readings; the steady rows
    // agree with a reading taken by zelmorctl, give or take a change in between.
    std::vector<PanelRow> expected;
    bool agreed = false;
    for (int attempt = 0; attempt < 3 && !agreed; ++attempt) {
        expected = steadyRowsFromZelmorctl(fleet.device(0).address);
        agreed = waitFor([&] { return showsRows(*window, expected); }, 5000);
    }
    for (PanelRow const& row : expected) EXPECT_EQ(rowValue(*window, row.label), row.value) << row.label;

    EXPECT_FALSE(saveScreenshot(*window, "device_window").empty());
    window->Close(true);
    ASSERT_TRUE(allWindowsGone());
}

TEST(GuiDeviceTest, LockedDeviceAsksForThePasswordUntilItIsRight) {
    SimFleet fleet({});
    // The third device of the default fleet is locked with "kingfisher".
    auto* window = new GuiDevice(nullptr, lanIdentifier(fleet.device(2)), nullptr);
    window->Show();
    wxTEST_DIALOG(ASSERT_TRUE(waitFor([&] { return !window->shownRows().empty(); }, 20000)),
                  ExpectEnterString("heron", ""), ExpectMessage("Error", "Invalid password."),
                  ExpectEnterString("kingfisher", ""));
    EXPECT_EQ(statusOf(*window), "Connected");
    window->Close(true);
    ASSERT_TRUE(allWindowsGone());
}

TEST(GuiDeviceTest, ClosingWhileARequestIsOutstandingShowsNothing) {
    // Every answer comes two seconds late: the information request is still
    // outstanding when the window closes.
    SimFleet fleet({"--device", "K,delay-ms=2000"});
    auto* window = new GuiDevice(nullptr, lanIdentifier(fleet.device(0)), nullptr);
    window->Show();
    waitFor([] { return false; }, 500);
    EXPECT_EQ(statusOf(*window), "Connecting ...");
    window->Close(true);
    ASSERT_TRUE(allWindowsGone());
    // Time for the late answer; the test's modal hook fails on any box shown.
    waitFor([] { return false; }, 2500);
}

TEST(GuiDeviceTest, KillingTheDeviceShowsDeviceDisconnectedAndClosesTheWindow) {
    SimFleet fleet({});
    openReadyWindow(lanIdentifier(fleet.device(0)));
    wxTEST_DIALOG(
        {
            fleet.kill();
            ASSERT_TRUE(allWindowsGone());
        },
        ExpectMessage("Info", "Device disconnected"));
}

TEST(GuiDeviceTest, NobodyAtTheAddressShowsDeviceFailedToConnect) {
    // Nothing listens on this loopback address: the connection is refused.
    auto* window = new GuiDevice(nullptr, lanIdentifier("Nobody", 0x10, "127.0.0.250"), nullptr);
    window->Show();
    wxTEST_DIALOG(ASSERT_TRUE(allWindowsGone()), ExpectMessage("Info", "Device failed to connect"));
}

}  // namespace
