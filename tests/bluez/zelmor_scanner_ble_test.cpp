// The device finder's Bluetooth LE source against the fake BlueZ: the filters
// it sets, simulated devices recognised by the manufacturer data they
// advertise while other advertisements are left out, and zelmorctl scan
// --bluetooth as a user runs it.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "ble_advertising.h"
#include "fake_bluez.h"
#include "reports.h"
#include "simulated_device.h"
#include "zelmor_gatt.h"
#include "zelmor_scanner_impl.h"

namespace {

using Sighting = ZelmorScanner::Advertisement;

constexpr char const* kAdapter = FakeBlueZ::kAdapter;
constexpr char const* kDeviceInterface = FakeBlueZ::kDeviceInterface;

sim::SimulatedDeviceConfig bluetoothModel(uint8_t revision, std::string name) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.name = std::move(name);
    config.bluetoothAddress = {0xC2, 0x5A, 0x4C, 0x00, 0x00, revision};
    config.serial = 300000 + revision;
    config.clock = [] { return int64_t{1700000000}; };  // readings hold still while the test compares them
    return config;
}

std::vector<uint8_t> advertisedBy(sim::SimulatedDevice& device) {
    ManufacturerData const data = sim::advertisedManufacturerData(device);
    return {data.begin(), data.end()};
}

/// What a sighting of `device` must carry, the readings within the resolution
/// of their encoding.
void expectReadingsOf(sim::SimulatedDevice& device, Sighting const& sighting) {
    sim::MonitorReadings const r = device.readings();
    EXPECT_EQ(sighting.source, Sighting::Source::Bluetooth);
    EXPECT_EQ(sighting.hardwareRevision, device.snapshot().hardwareRevision);
    EXPECT_EQ(sighting.firmwareVersion, device.snapshot().firmwareVersion);
    EXPECT_EQ(sighting.time, r.time);
    EXPECT_EQ(sighting.status, r.status & 0x0F);
    EXPECT_NEAR(sighting.voltage1, r.voltage1, 0.0005);
    EXPECT_EQ(std::isnan(sighting.voltage2), std::isnan(r.voltage2));
    if (!std::isnan(r.voltage2)) {
        EXPECT_NEAR(sighting.voltage2, r.voltage2, 0.0005);
    }
    EXPECT_NEAR(sighting.current, r.current, std::fabs(r.current) / 2048);
    EXPECT_NEAR(sighting.power, r.power, std::fabs(r.power) / 2048);
    EXPECT_NEAR(sighting.temperature, r.temperature, std::fabs(r.temperature) / 2048);
    EXPECT_EQ(sighting.coulombMeter, r.coulombMeter);
    EXPECT_EQ(sighting.energyWh, static_cast<float>(static_cast<double>(r.energyMeter) / 1000.0));
    EXPECT_EQ(sighting.powerStatus, static_cast<uint8_t>(r.powerStatus));
    EXPECT_EQ(sighting.stateOfCharge, r.stateOfCharge);
    EXPECT_EQ(sighting.runtime, r.runtime);
}

TEST(ZelmorScannerBle, InitFiltersOnTheServiceAndLeavesDiscoveryRunning) {
    FakeBlueZ& fake = fakeBlueZ();
    fake.reset();
    fake.addAdapter("hci0");
    ZelmorScannerImpl scanner;
    ASSERT_TRUE(scanner.initBle()) << scanner.lastError();
    EXPECT_EQ(fake.calls(kAdapter), (std::vector<std::string>{
                                        "StopDiscovery()",
                                        R"(SetDiscoveryFilter({"Transport": "le", "DuplicateData": true}))",
                                        "StopDiscovery()",
                                        R"(SetDiscoveryFilter({"Transport": "le", "DuplicateData": true}))",
                                        "StopDiscovery()",
                                        R"(SetDiscoveryFilter({"UUIDs": ["ec7c0000-2c7b-1539-172f-29d041beab3e"]}))",
                                        "StartDiscovery()",
                                    }));
    EXPECT_EQ(fake.adapterProperty(kAdapter, "Discovering"), "true");
    scanner.stopBle();
    EXPECT_EQ(fake.adapterProperty(kAdapter, "Discovering"), "false");
}

TEST(ZelmorScannerBle, InitReportsARefusedStart) {
    FakeBlueZ& fake = fakeBlueZ();
    fake.reset();
    fake.addAdapter("hci0");
    fake.addMethod(kAdapter, FakeBlueZ::kAdapterInterface, "StartDiscovery", "",
                   "raise dbus.exceptions.DBusException('Resource Not Ready', name='org.bluez.Error.NotReady')");
    ZelmorScannerImpl scanner;
    EXPECT_FALSE(scanner.initBle());
    EXPECT_EQ(scanner.lastError(), "org.bluez.Error.NotReady: Resource Not Ready");
}

TEST(ZelmorScannerBle, SimulatedDevicesAreRecognisedByTheirManufacturerData) {
    sim::SimulatedDevice zelmor(bluetoothModel(0x23, "Galley"));
    sim::SimulatedDevice zelmor7T(bluetoothModel(0x30, "Bow"));
    FakeBlueZ& fake = fakeBlueZ();
    fake.reset();
    fake.addAdapter("hci0");
    ZelmorScannerImpl scanner;
    Reports<Sighting> sightings;
    scanner.setAdvertisementCallback(sightings.callback());
    ASSERT_TRUE(scanner.initBle()) << scanner.lastError();

    // Advertisements that are not the devices' come first: signals arrive in
    // the order sent, so by the time the devices are seen these were handled.
    std::vector<uint8_t> const valid = advertisedBy(zelmor);
    std::vector<uint8_t> const cut(valid.begin(), valid.end() - 1);
    ManufacturerEntries const strangers[] = {
        {{0x004C, valid}},
        {{kZelmorCompanyId, cut}},
        {{0x004C, {1, 2}}, {kZelmorCompanyId, cut}},
    };
    for (size_t i = 0; i < std::size(strangers); ++i) {
        std::string const path = fake.addDevice("D0:00:00:00:00:0" + std::to_string(i), "Stranger");
        fake.setProperty(path, kDeviceInterface, "ManufacturerData", strangers[i]);
    }
    std::string const path = fake.addDevice("C2:5A:4C:00:00:23", "Galley");
    fake.setProperty(path, kDeviceInterface, "ManufacturerData",
                     ManufacturerEntries{{0x0006, {9}}, {kZelmorCompanyId, valid}});
    std::string const path7T = fake.addDevice("C2:5A:4C:00:00:30", "Bow");
    fake.setProperty(path7T, kDeviceInterface, "AddressType", std::string("random"));
    fake.setProperty(path7T, kDeviceInterface, "RSSI", int16_t{-55});
    fake.setProperty(path7T, kDeviceInterface, "ManufacturerData",
                     ManufacturerEntries{{kZelmorCompanyId, advertisedBy(zelmor7T)}});

    std::vector<Sighting> const seen = sightings.wait(2);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].name, "Galley");
    EXPECT_EQ(seen[0].rssi, -79);
    EXPECT_EQ(seen[0].serial, 0xC25A4C000023u);
    EXPECT_EQ(seen[0].bluetoothAddress, 0xC25A4C000023u);
    EXPECT_FALSE(seen[0].randomAddress);
    expectReadingsOf(zelmor, seen[0]);
    EXPECT_EQ(seen[1].name, "Bow");
    EXPECT_EQ(seen[1].rssi, -55);
    EXPECT_EQ(seen[1].serial, 0xC25A4C000030u);
    EXPECT_TRUE(seen[1].randomAddress);
    EXPECT_TRUE(std::isnan(seen[1].voltage2));
    expectReadingsOf(zelmor7T, seen[1]);
}

// The device advertises a few times a second while the scan listens.
TEST(ZelmorctlBluetoothScan, ListsTheAdvertisingModelsAsJson) {
    FakeBlueZ& fake = fakeBlueZ();
    fake.reset();
    fake.addAdapter("hci0");
    sim::SimulatedDevice device(bluetoothModel(0x30, "Galley"));
    std::string const path = fake.addDevice("C2:5A:4C:00:00:30", "Galley");
    ChildProcess scan(ZELMORCTL_PATH, {"scan", "--bluetooth", "--seconds", "2", "--json"});
    ASSERT_TRUE(scan.started()) << scan.error();
    std::optional<int> status;
    while (!(status = scan.wait(std::chrono::milliseconds(100))))
        fake.setProperty(path, kDeviceInterface, "ManufacturerData",
                         ManufacturerEntries{{kZelmorCompanyId, advertisedBy(device)}});
    ASSERT_EQ(*status, 0) << scan.takeErrors();
    std::string const out = scan.takeOutput();
    nlohmann::json const line = nlohmann::json::parse(out.substr(0, out.find('\n')));
    EXPECT_EQ(line["bluetooth_address"], "C2:5A:4C:00:00:30");
    EXPECT_EQ(line["serial"], "0000C25A4C000030");
    EXPECT_EQ(line["model"], "Zelmor-7T");
    EXPECT_EQ(line["name"], "Galley");
    EXPECT_TRUE(line["ip"].is_null());
    EXPECT_TRUE(line["voltage2"].is_null());
}

TEST(ZelmorctlBluetoothScan, WithoutAnAdapterSaysSo) {
    fakeBlueZ().reset();
    ProgramRun const run =
        runProgram(ZELMORCTL_PATH, {"scan", "--bluetooth", "--seconds", "1"}, std::chrono::seconds(30));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Bluetooth LE scan failed: No Bluetooth adapter found\n");
}

}  // namespace
