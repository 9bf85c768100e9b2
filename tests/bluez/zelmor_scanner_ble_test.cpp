// The device finder's Bluetooth LE source against a fake BlueZ: the filters it
// sets, and simulated devices recognised by the manufacturer data they
// advertise while other advertisements are left out.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ble_advertising.h"
#include "bluez_environment.h"
#include "sightings.h"
#include "simulated_device.h"
#include "zelmor_gatt.h"
#include "zelmor_scanner_impl.h"

namespace {

using Sighting = ZelmorScanner::Advertisement;

std::string const kAdapter = "/org/bluez/hci0";
constexpr int64_t kNow = 1700000000;

std::unique_ptr<sim::SimulatedDevice> bluetoothModel(uint8_t revision, std::array<uint8_t, 6> address) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.bluetoothAddress = address;
    config.serial = 300000 + revision;
    config.clock = [] { return kNow; };  // readings hold still while the test compares them
    return std::make_unique<sim::SimulatedDevice>(config);
}

std::vector<uint8_t> bytesOf(ManufacturerData const& data) { return {data.begin(), data.end()}; }

/// What a sighting of `device` must carry, the readings within the resolution
/// of their encoding.
void expectReadingsOf(sim::SimulatedDevice& device, Sighting const& sighting) {
    sim::DeviceSnapshot const snapshot = device.snapshot();
    sim::MonitorReadings const r = device.readings();
    EXPECT_EQ(sighting.source, Sighting::Source::Bluetooth);
    EXPECT_EQ(sighting.hardwareRevision, snapshot.hardwareRevision);
    EXPECT_EQ(sighting.firmwareVersion, snapshot.firmwareVersion);
    EXPECT_EQ(sighting.time, r.time);
    EXPECT_EQ(sighting.status, r.status & 0x0F);
    EXPECT_NEAR(sighting.voltage1, r.voltage1, 0.0005);
    if (std::isnan(r.voltage2)) {
        EXPECT_TRUE(std::isnan(sighting.voltage2));
    } else {
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

class ZelmorScannerBleTest : public testing::Test {
protected:
    void SetUp() override {
        fake().reset();
        scanner_.setAdvertisementCallback(sightings_.callback());
    }

    static FakeBlueZ& fake() { return fakeBlueZ(); }

    std::vector<Sighting> sightingsOf(uint64_t address) {
        return sightings_.waitFor([&](Sighting const& s) { return s.bluetoothAddress == address; });
    }

    ZelmorScannerImpl scanner_;
    Sightings<Sighting> sightings_;
};

}  // namespace

TEST_F(ZelmorScannerBleTest, InitBleFiltersOnTheServiceAndLeavesDiscoveryRunning) {
    fake().addAdapter("hci0");
    ASSERT_TRUE(scanner_.initBle()) << scanner_.lastError();
    EXPECT_EQ(fake().calls(kAdapter), (std::vector<std::string>{
                                          "StopDiscovery()",
                                          R"(SetDiscoveryFilter({"Transport": "le", "DuplicateData": true}))",
                                          "StopDiscovery()",
                                          R"(SetDiscoveryFilter({"Transport": "le", "DuplicateData": true}))",
                                          "StopDiscovery()",
                                          R"(SetDiscoveryFilter({"UUIDs": ["ec7c0000-2c7b-1539-172f-29d041beab3e"]}))",
                                          "StartDiscovery()",
                                      }));
    EXPECT_EQ(fake().property(kAdapter, FakeBlueZ::kAdapterInterface, "Discovering"), "true");

    scanner_.stopBle();
    EXPECT_EQ(fake().property(kAdapter, FakeBlueZ::kAdapterInterface, "Discovering"), "false");
    EXPECT_EQ(fake().calls(kAdapter).back(), "StopDiscovery()");
}

TEST_F(ZelmorScannerBleTest, InitBleWithoutAdapterGivesTheScannersMessage) {
    EXPECT_FALSE(scanner_.initBle());
    EXPECT_EQ(scanner_.lastError(), "No Bluetooth adapter found");
}

TEST_F(ZelmorScannerBleTest, InitBleReportsARefusedStart) {
    fake().addAdapter("hci0");
    fake().addMethod(kAdapter, FakeBlueZ::kAdapterInterface, "StartDiscovery", "", "",
                     "raise dbus.exceptions.DBusException('Resource Not Ready', name='org.bluez.Error.NotReady')");
    EXPECT_FALSE(scanner_.initBle());
    EXPECT_EQ(scanner_.lastError(), "org.bluez.Error.NotReady: Resource Not Ready");
}

TEST_F(ZelmorScannerBleTest, SimulatedDevicesAreRecognisedByTheirManufacturerData) {
    auto const zelmor = bluetoothModel(0x23, {0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x23});
    auto const zelmor7T = bluetoothModel(0x30, {0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x30});
    fake().addAdapter("hci0");
    ASSERT_TRUE(scanner_.initBle()) << scanner_.lastError();

    // Advertisements that are not the devices' come first: signals arrive in
    // the order sent, so by the time the devices are seen these were handled.
    std::vector<uint8_t> const valid = bytesOf(sim::advertisedManufacturerData(*zelmor));
    std::vector<uint8_t> const cut(valid.begin(), valid.end() - 1);
    struct Stranger {
        char const* address;
        ManufacturerEntries data;
    };
    Stranger const strangers[] = {
        {"D0:00:00:00:00:01", {{0x004C, valid}}},
        {"D0:00:00:00:00:02", {{kZelmorCompanyId, cut}}},
        {"D0:00:00:00:00:03", {{0x004C, {1, 2}}, {kZelmorCompanyId, cut}}},
    };
    for (Stranger const& stranger : strangers) {
        std::string const path = fake().addDevice("hci0", stranger.address, "Stranger");
        fake().setProperty(path, FakeBlueZ::kDeviceInterface, "ManufacturerData", stranger.data);
    }

    // One device changes its properties, the other appears with all of them.
    std::string const name = zelmor->snapshot().name;
    std::string const path = fake().addDevice("hci0", "C2:5A:4C:00:00:23", name);
    fake().setProperty(path, FakeBlueZ::kDeviceInterface, "ManufacturerData",
                       ManufacturerEntries{{0x0006, {9}}, {kZelmorCompanyId, valid}});
    std::string const name7T = zelmor7T->snapshot().name;
    fake().announceDevice(
        "/org/bluez/hci0/dev_C2_5A_4C_00_00_30",
        {
            {"Address", std::string("C2:5A:4C:00:00:30")},
            {"AddressType", std::string("random")},
            {"Name", name7T},
            {"RSSI", int16_t{-55}},
            {"UUIDs", std::vector<std::string>{kZelmorServiceUuid}},
            {"ManufacturerData",
             ManufacturerEntries{{kZelmorCompanyId, bytesOf(sim::advertisedManufacturerData(*zelmor7T))}}},
        });

    std::vector<Sighting> const seen = sightingsOf(0xC25A4C000023);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].name, name);
    EXPECT_EQ(seen[0].rssi, -79);
    EXPECT_EQ(seen[0].serial, 0xC25A4C000023u);
    EXPECT_FALSE(seen[0].randomAddress);
    EXPECT_FALSE(std::isnan(seen[0].voltage2));
    expectReadingsOf(*zelmor, seen[0]);

    std::vector<Sighting> const seen7T = sightingsOf(0xC25A4C000030);
    ASSERT_EQ(seen7T.size(), 1u);
    EXPECT_EQ(seen7T[0].name, name7T);
    EXPECT_EQ(seen7T[0].rssi, -55);
    EXPECT_EQ(seen7T[0].serial, 0xC25A4C000030u);
    EXPECT_TRUE(seen7T[0].randomAddress);
    EXPECT_TRUE(std::isnan(seen7T[0].voltage2));
    expectReadingsOf(*zelmor7T, seen7T[0]);

    EXPECT_EQ(sightings_.all().size(), 2u);
    for (Sighting const& s : sightings_.all())
        EXPECT_EQ(s.bluetoothAddress >> 40, 0xC2u) << std::hex << s.bluetoothAddress;
}
