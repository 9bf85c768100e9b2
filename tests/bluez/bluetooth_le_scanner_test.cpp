// The BlueZ scanner against the fake BlueZ: finding and powering the adapter,
// the discovery filters exactly as sent, BlueZ's refusals, and the sightings
// it makes of InterfacesAdded and PropertiesChanged.
#include "bluetooth_le_scanner.h"

#include <gtest/gtest.h>

#include "fake_bluez.h"
#include "reports.h"
#include "test_bytes.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;

constexpr char const* kAdapter = FakeBlueZ::kAdapter;
constexpr char const* kAdapterInterface = FakeBlueZ::kAdapterInterface;

FakeBlueZ& freshBlueZ() {
    fakeBlueZ().reset();
    return fakeBlueZ();
}

std::string raise(std::string const& name, std::string const& message) {
    return "raise dbus.exceptions.DBusException('" + message + "', name='" + name + "')";
}

TEST(BluetoothLEScanner, InitPowersTheAdapterItFinds) {
    struct Case {
        char const* name;
        std::vector<std::string> adapters;
        std::string objectManager;  // where GetManagedObjects answers only `answer`
        std::string answer;
        std::string path;
        std::string error;
    } const cases[] = {
        {"one adapter", {"hci0"}, "", "", kAdapter, ""},
        {"the lowest of several", {"hci2", "hci1"}, "", "", "/org/bluez/hci1", ""},
        {"BlueZ's own object manager first", {"hci0", "hci1"}, "/org/bluez", "hci1", "/org/bluez/hci1", ""},
        {"no adapter", {}, "", "", "", "No Bluetooth adapter found"},
        {"an adapter that does not answer for its address",
         {"hci0"},
         "/",
         "hci5",
         "",
         R"(org.freedesktop.DBus.Error.UnknownObject: Method "Get" with signature "ss" on interface )"
         R"("org.freedesktop.DBus.Properties" doesn't exist)"
         "\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        FakeBlueZ& fake = freshBlueZ();
        for (std::string const& adapter : c.adapters) {
            fake.addAdapter(adapter);
            fake.setProperty("/org/bluez/" + adapter, kAdapterInterface, "Powered", false);
        }
        if (!c.objectManager.empty())
            fake.addMethod(c.objectManager, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", "a{oa{sa{sv}}}",
                           "ret = {dbus.ObjectPath('/org/bluez/" + c.answer + "'): {'org.bluez.Adapter1': {}}}");
        BluetoothLEScanner scanner;
        EXPECT_EQ(scanner.init(), c.error.empty());
        EXPECT_EQ(scanner.lastError(), c.error);
        EXPECT_EQ(scanner.adapterPath(), c.path);
        if (c.error.empty()) {
            EXPECT_EQ(fake.adapterProperty(c.path, "Powered"), "true");
        } else {
            EXPECT_FALSE(scanner.start());
            EXPECT_EQ(scanner.lastError(), "The Bluetooth LE scanner is not initialised");
        }
    }
}

TEST(BluetoothLEScanner, FiltersAreSentAsTheyAreAfterStoppingDiscovery) {
    FakeBlueZ& fake = freshBlueZ();
    fake.addAdapter("hci0");
    BluetoothLEScanner scanner;
    ASSERT_TRUE(scanner.init()) << scanner.lastError();
    ASSERT_TRUE(scanner.setParameters(false)) << scanner.lastError();
    ASSERT_TRUE(scanner.setUuidFilters({BleUUID(0x180f), *BleUUID::parse("EC7C0000-2C7B-1539-172F-29D041BEAB3E")}));
    ASSERT_TRUE(scanner.setUuidFilters({})) << scanner.lastError();
    EXPECT_EQ(fake.calls(kAdapter), (std::vector<std::string>{
                                        "StopDiscovery()",
                                        R"(SetDiscoveryFilter({"Transport": "le", "DuplicateData": true}))",
                                        "StopDiscovery()",
                                        R"(SetDiscoveryFilter({"Transport": "le", "DuplicateData": false}))",
                                        "StopDiscovery()",
                                        R"(SetDiscoveryFilter({"UUIDs": ["0000180f-0000-1000-8000-00805f9b34fb", )"
                                        R"("ec7c0000-2c7b-1539-172f-29d041beab3e"]}))",
                                        "StopDiscovery()",
                                        R"(SetDiscoveryFilter({"UUIDs": []}))",
                                    }));
}

// A refused start releases the scanner; a refused stop leaves it as it was.
TEST(BluetoothLEScanner, RefusalsGiveBlueZsError) {
    struct Case {
        char const* method;
        bool (BluetoothLEScanner::*act)();
        std::string name;
        std::string message;
        std::string pathAfter;
    } const cases[] = {
        {"StartDiscovery", &BluetoothLEScanner::start, "org.bluez.Error.InProgress", "Operation already in progress",
         ""},
        {"StopDiscovery", &BluetoothLEScanner::stop, "org.bluez.Error.Failed", "No discovery started", kAdapter},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.method);
        FakeBlueZ& fake = freshBlueZ();
        fake.addAdapter("hci0");
        BluetoothLEScanner scanner;
        ASSERT_TRUE(scanner.init()) << scanner.lastError();
        fake.addMethod(kAdapter, kAdapterInterface, c.method, "", raise(c.name, c.message));
        EXPECT_FALSE((scanner.*c.act)());
        EXPECT_EQ(scanner.lastError(), c.name + ": " + c.message);
        EXPECT_EQ(scanner.adapterPath(), c.pathAfter);
    }
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
// whole property set, read back; signals about other objects give nothing.
TEST(BluetoothLEScanner, SightingsCarryTheDevicesProperties) {
    FakeBlueZ& fake = freshBlueZ();
    fake.addAdapter("hci0");
    BluetoothLEScanner scanner;
    Reports<Advertisement> sightings;
    scanner.setAdvertisementCallback(sightings.callback());
    ASSERT_TRUE(scanner.init()) << scanner.lastError();
    ASSERT_TRUE(scanner.start()) << scanner.lastError();
    EXPECT_EQ(fake.adapterProperty(kAdapter, "Discovering"), "true");
    ASSERT_TRUE(scanner.stop()) << scanner.lastError();
    EXPECT_EQ(fake.adapterProperty(kAdapter, "Discovering"), "false");
    ASSERT_TRUE(scanner.start()) << scanner.lastError();

    // Signals arrive in the order sent: once the devices are seen, these were handled.
    fake.addAdapter("hci1");
    fake.setProperty("/org/bluez/hci1", kAdapterInterface, "Powered", false);
    std::string const shortAddress = fake.addDevice("C2:5A:4C:00:07", "Short");
    std::string const path = fake.addDevice("C2:5A:4C:00:00:07", "Cabin");
    std::vector<std::string> seen;
    for (Advertisement const& ad : sightings.wait(2)) seen.push_back(describe(ad));
    std::string const cabin = path + " 07 00 00 4c 5a c2 ";
    EXPECT_EQ(seen,
              (std::vector<std::string>{shortAddress + " no address public Short -79", cabin + "public Cabin -79"}));

    std::string const uuids = " 0000180f-0000-1000-8000-00805f9b34fb ec7c0000-2c7b-1539-172f-29d041beab3e";
    std::string const data = uuids + " 1225: 01 02 03 76: 07";
    struct Step {
        char const* property;
        PropertyValue value;
        std::string seen;
    } const steps[] = {
        {"RSSI", int16_t{-42}, cabin + "public Cabin -42"},
        {"UUIDs",
         std::vector<std::string>{"0000180f-0000-1000-8000-00805f9b34fb", "ec7c0000-2c7b-1539-172f-29d041beab3e"},
         cabin + "public Cabin -42" + uuids},
        {"ManufacturerData", ManufacturerEntries{{0x04C9, {1, 2, 3}}, {0x004C, {7}}},
         cabin + "public Cabin -42" + data},
        {"AddressType", std::string("random"), cabin + "random Cabin -42" + data},
        {"AddressType", std::string("public"), cabin + "public Cabin -42" + data},
        {"AddressType", std::string("static"), cabin + "random Cabin -42" + data},
    };
    for (size_t i = 0; i < std::size(steps); ++i) {
        SCOPED_TRACE(steps[i].property);
        fake.setProperty(path, FakeBlueZ::kDeviceInterface, steps[i].property, steps[i].value);
        std::vector<Advertisement> const all = sightings.wait(i + 3);
        ASSERT_EQ(all.size(), i + 3);
        EXPECT_EQ(describe(all.back()), steps[i].seen);
    }
}

}  // namespace
