// The BlueZ scanner against the fake BlueZ: the failure that leaves it
// unusable and the sightings it makes of InterfacesAdded and
// PropertiesChanged. zelmorctl's scan shows the adapter's calls and errors.
#include "bluetooth_le_scanner.h"

#include <gtest/gtest.h>

#include "fake_bluez.h"
#include "reports.h"
#include "test_bytes.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;

constexpr char const* kAdapter = FakeBlueZ::kAdapter;

// A refused start releases the scanner: nothing works until the next init().
// zelmorctl's scan shows the errors of a missing adapter and a refused start.
TEST(BluetoothLEScanner, ARefusedStartLeavesItUninitialised) {
    FakeBlueZ& fake = FakeBlueZ::instance();
    fake.reset();
    fake.refuseDiscovery("org.bluez.Error.InProgress", "Operation in progress");
    BluetoothLEScanner scanner;
    ASSERT_TRUE(scanner.init()) << scanner.lastError();
    EXPECT_FALSE(scanner.start());
    EXPECT_EQ(scanner.adapterPath(), "");
    EXPECT_FALSE(scanner.setParameters(true));
    EXPECT_EQ(scanner.lastError(), "The Bluetooth LE scanner is not initialised");
}

/// Everything a sighting carries, in one line.
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
    BluetoothLEScanner scanner;
    Reports<Advertisement> sightings;
    scanner.setAdvertisementCallback(sightings.callback());
    ASSERT_TRUE(scanner.init()) << scanner.lastError();
    EXPECT_EQ(scanner.adapterPath(), kAdapter);
    ASSERT_TRUE(scanner.start()) << scanner.lastError();
    ASSERT_TRUE(scanner.stop()) << scanner.lastError();
    ASSERT_TRUE(scanner.start()) << scanner.lastError();

    // Signals arrive in the order sent: once the devices are seen, this was handled.
    fake.setProperty(kAdapter, "Alias", std::string("workshop"));
    std::string const shortAddress = fake.addDevice("C2:5A:4C:00:07", "Short");
    std::string const path = fake.addDevice("C2:5A:4C:00:00:07", "Cabin");
    std::vector<std::string> seen;
    for (Advertisement const& ad : sightings.wait(2)) seen.push_back(describe(ad));
    std::string const cabin = path + " 07 00 00 4c 5a c2 ";
    EXPECT_EQ(seen,
              (std::vector<std::string>{shortAddress + " no address public Short -79", cabin + "public Cabin -79"}));

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
        std::vector<Advertisement> const all = sightings.wait(i + 3);
        ASSERT_EQ(all.size(), i + 3);
        EXPECT_EQ(describe(all.back()), steps[i].seen);
    }
}

}  // namespace
