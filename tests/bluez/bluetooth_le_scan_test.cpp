// Scanning against the fake BlueZ. The scanner: the failure that leaves it
// unusable, and the sightings it makes of InterfacesAdded and
// PropertiesChanged. zelmorctl scan --bluetooth as a user runs it: the filters
// its scanner sets, the simulated models it lists by their manufacturer data
// while other advertisements are left out, and why it cannot scan.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ble_advertising.h"
#include "bluetooth_le_scanner.h"
#include "fake_bluez.h"
#include "reports.h"
#include "simulated_device.h"
#include "test_bytes.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;
using Json = nlohmann::json;

constexpr char const* kAdapter = FakeBlueZ::kAdapter;

std::string describe(Advertisement const& ad) {
    std::string text = ad.objectPath + " " + (ad.hasAddress ? hex(ad.address) : "no address");
    text += (ad.randomAddress ? " random " : " public ") + ad.name + " " + std::to_string(ad.rssi);
    for (BleUUID const& uuid : ad.serviceUuids) text += " " + uuid.toString();
    for (auto const& [company, bytes] : ad.manufacturerData) text += " " + std::to_string(company) + ": " + hex(bytes);
    return text;
}

// Stopping ends the listening thread, starting again starts a new one. A
// device's InterfacesAdded gives its properties, each PropertiesChanged the
// whole property set, read back; the adapter's own changes give nothing.
TEST(BluetoothLEScanner, SightingsCarryTheDevicesProperties) {
    FakeBlueZ& fake = FakeBlueZ::instance();
    fake.reset();
    fake.refuseDiscovery();
    BluetoothLEScanner scanner;
    Reports<Advertisement> sightings;
    scanner.setAdvertisementCallback(sightings.callback());
    ASSERT_TRUE(scanner.init()) << scanner.lastError();
    // A refused start releases the scanner: nothing works until the next init().
    EXPECT_FALSE(scanner.start());
    EXPECT_EQ(scanner.adapterPath(), "");
    EXPECT_FALSE(scanner.setParameters(true));
    EXPECT_EQ(scanner.lastError(), "The Bluetooth LE scanner is not initialised");

    fake.reset();
    ASSERT_TRUE(scanner.init()) << scanner.lastError();
    EXPECT_EQ(scanner.adapterPath(), kAdapter);
    ASSERT_TRUE(scanner.start()) << scanner.lastError();
    ASSERT_TRUE(scanner.stop()) << scanner.lastError();
    ASSERT_TRUE(scanner.start()) << scanner.lastError();

    // Signals arrive in the order sent: once the device is seen, this was handled.
    fake.setProperty(kAdapter, "Alias", std::string("workshop"));
    std::string const path = fake.addDevice("C2:5A:4C:00:00:07", "Cabin");
    std::string const cabin = path + " 07 00 00 4c 5a c2 ";
    std::vector<Advertisement> const added = sightings.wait(1);
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(describe(added[0]), cabin + "public Cabin -79");

    std::string const random = cabin + "random Cabin -42";
    std::string const data = " 1225: 01 02 03 76: 07";
    struct Step {
        char const* property;
        PropertyValue value;
        std::string seen;
    } const steps[] = {
        {"RSSI", int16_t{-42}, cabin + "public Cabin -42"},
        {"AddressType", std::string("random"), random},
        {"ManufacturerData", ManufacturerEntries{{0x04C9, {1, 2, 3}}, {0x004C, {7}}}, random + data},
        {"UUIDs", std::vector<std::string>{"ec7c0000-2c7b-1539-172f-29d041beab3e"},
         random + " ec7c0000-2c7b-1539-172f-29d041beab3e" + data},
    };
    for (size_t i = 0; i < std::size(steps); ++i) {
        SCOPED_TRACE(steps[i].property);
        fake.setProperty(path, steps[i].property, steps[i].value);
        std::vector<Advertisement> const all = sightings.wait(i + 2);
        ASSERT_EQ(all.size(), i + 2);
        EXPECT_EQ(describe(all.back()), steps[i].seen);
    }
}

sim::SimulatedDeviceConfig bluetoothModel(uint8_t revision) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.bluetoothAddress = {0xC2, 0x5A, 0x4C, 0x00, 0x00, revision};
    config.clock = [] { return int64_t{1700000000}; };  // readings hold still while the test compares them
    return config;
}

std::vector<uint8_t> advertisedBy(sim::SimulatedDevice& device) {
    ManufacturerData const data = sim::advertisedManufacturerData(device);
    return {data.begin(), data.end()};
}

/// The readings a listing of `device` must carry, within the resolution of
/// their encoding and of the listing.
void expectReadingsOf(sim::SimulatedDevice& device, Json const& line) {
    sim::MonitorReadings const r = device.readings();
    EXPECT_EQ(line["time"], r.time);
    EXPECT_EQ(line["status"], r.status & 0x0F);
    EXPECT_EQ(line["coulomb_mAh"], r.coulombMeter);
    EXPECT_EQ(line["soc"], r.stateOfCharge);
    EXPECT_EQ(line["runtime_minutes"], r.runtime);
    // The 0x3_ models have no second voltage to list.
    EXPECT_EQ(line["voltage2"].is_null(), std::isnan(r.voltage2));
    for (auto const& [field, expected, resolution] : {std::tuple{"voltage1", double{r.voltage1}, 0.0},
                                                      {"voltage2", double{r.voltage2}, 0.0},
                                                      {"current", double{r.current}, 1.0 / 2048},
                                                      {"power", double{r.power}, 1.0 / 2048},
                                                      {"temperature", double{r.temperature}, 1.0 / 2048},
                                                      {"energy_Wh", static_cast<double>(r.energyMeter) / 1000, 0.0}}) {
        if (std::isnan(expected)) continue;
        EXPECT_NEAR(line[field].get<double>(), expected, std::fabs(expected) * resolution + 0.001) << field;
    }
}

TEST(ZelmorctlBluetoothScan, ListsTheAdvertisingModelsAsJson) {
    FakeBlueZ& fake = FakeBlueZ::instance();
    fake.reset();
    sim::SimulatedDevice zelmor(bluetoothModel(0x23));
    sim::SimulatedDevice zelmor7T(bluetoothModel(0x30));
    std::vector<uint8_t> const valid = advertisedBy(zelmor);
    // The two models among other companies' data, then a device's valid
    // readings under another company, which are left out.
    std::vector<std::pair<std::string, ManufacturerEntries>> const advertising = {
        {fake.addDevice("C2:5A:4C:00:00:23", "Galley"), {{0x0006, {9}}, {kZelmorCompanyId, valid}}},
        {fake.addDevice("C2:5A:4C:00:00:30", "Bow"), {{kZelmorCompanyId, advertisedBy(zelmor7T)}}},
        {fake.addDevice("D0:00:00:00:00:01", "Stranger"), {{0x004C, valid}}},
    };
    fake.setProperty(advertising[1].first, "RSSI", int16_t{-55});
    ChildProcess scan(ZELMORCTL_PATH, {"scan", "--bluetooth", "--seconds", "2", "--json"});
    ASSERT_TRUE(scan.started()) << scan.error();
    // The devices advertise a few times a second while the scan listens.
    std::optional<int> status;
    while (!(status = scan.wait(std::chrono::milliseconds(100))))
        for (auto const& [path, entries] : advertising) fake.setProperty(path, "ManufacturerData", entries);
    ASSERT_EQ(*status, 0) << scan.takeErrors();
    std::string const duplicates = R"(SetDiscoveryFilter {"Transport": "le", "DuplicateData": True})";
    EXPECT_EQ(fake.adapterLog(),
              (std::vector<std::string>{"Set Powered True", "StopDiscovery", duplicates, "StopDiscovery", duplicates,
                                        "StopDiscovery",
                                        R"(SetDiscoveryFilter {"UUIDs": ["ec7c0000-2c7b-1539-172f-29d041beab3e"]})",
                                        "StartDiscovery", "StopDiscovery"}));

    std::istringstream out(scan.takeOutput());
    std::vector<Json> lines;
    for (std::string line; std::getline(out, line);) lines.push_back(Json::parse(line));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["bluetooth_address"], "C2:5A:4C:00:00:23");
    EXPECT_EQ(lines[0]["serial"], "0000C25A4C000023");
    EXPECT_EQ(lines[0]["name"], "Galley");
    EXPECT_EQ(lines[0]["rssi"], -79);
    expectReadingsOf(zelmor, lines[0]);
    EXPECT_EQ(lines[1]["bluetooth_address"], "C2:5A:4C:00:00:30");
    EXPECT_EQ(lines[1]["serial"], "0000C25A4C000030");
    EXPECT_EQ(lines[1]["model"], "Zelmor-7T");
    EXPECT_EQ(lines[1]["name"], "Bow");
    EXPECT_EQ(lines[1]["rssi"], -55);
    EXPECT_TRUE(lines[1]["ip"].is_null());
    expectReadingsOf(zelmor7T, lines[1]);
}

TEST(ZelmorctlBluetoothScan, SaysWhyItCannotScan) {
    std::pair<bool, char const*> const cases[] = {
        {false, "Bluetooth LE scan failed: No Bluetooth adapter found\n"},
        {true, "Bluetooth LE scan failed: org.bluez.Error.NotReady: Resource Not Ready\n"},
    };
    for (auto const& [adapter, error] : cases) {
        FakeBlueZ& fake = FakeBlueZ::instance();
        fake.reset(adapter);
        if (adapter) fake.refuseDiscovery();
        ProgramRun const run =
            runProgram(ZELMORCTL_PATH, {"scan", "--bluetooth", "--seconds", "1"}, std::chrono::seconds(30));
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, error);
    }
}

}  // namespace
