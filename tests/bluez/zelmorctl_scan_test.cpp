// zelmorctl scan --bluetooth as a user runs it, against the fake BlueZ: the
// simulated Bluetooth LE models it lists, and BlueZ's own message when there
// is no adapter to scan with.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ble_advertising.h"
#include "bluez_environment.h"
#include "child_process.h"
#include "simulated_device.h"

namespace {

using Json = nlohmann::json;

TEST(ZelmorctlBluetoothScanTest, ListsTheAdvertisingModelsByTheirAddress) {
    FakeBlueZ& fake = fakeBlueZ();
    fake.reset();
    fake.addAdapter("hci0");
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x30;
    config.name = "Galley";
    sim::SimulatedDevice device(config);
    std::string const path = fake.addDevice("hci0", "C2:5A:4C:00:00:30", "Galley");

    ChildProcess scan(ZELMORCTL_PATH, {"scan", "--bluetooth", "--seconds", "2", "--json"});
    ASSERT_TRUE(scan.started()) << scan.error();
    // The device advertises a few times a second while the scan listens.
    std::optional<int> status;
    while (!(status = scan.wait(std::chrono::milliseconds(100)))) {
        ManufacturerData const data = sim::advertisedManufacturerData(device);
        fake.setProperty(path, FakeBlueZ::kDeviceInterface, "ManufacturerData",
                         ManufacturerEntries{{kZelmorCompanyId, std::vector<uint8_t>(data.begin(), data.end())}});
    }
    ASSERT_EQ(*status, 0) << scan.takeErrors();

    std::string const out = scan.takeOutput();
    Json const line = Json::parse(out.substr(0, out.find('\n')));
    EXPECT_EQ(line["bluetooth_address"], "C2:5A:4C:00:00:30");
    EXPECT_EQ(line["serial"], "0000C25A4C000030");
    EXPECT_EQ(line["model"], "Zelmor-7T");
    EXPECT_EQ(line["name"], "Galley");
    EXPECT_TRUE(line["ip"].is_null());
    EXPECT_TRUE(line["voltage2"].is_null());
}

TEST(ZelmorctlBluetoothScanTest, WithoutAnAdapterSaysSo) {
    fakeBlueZ().reset();
    ProgramRun const run =
        runProgram(ZELMORCTL_PATH, {"scan", "--bluetooth", "--seconds", "1"}, std::chrono::seconds(30));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Bluetooth LE scan failed: No Bluetooth adapter found\n");
}

}  // namespace
