// The BlueZ scanner against a fake BlueZ on a private bus: finding and powering
// the adapter, the discovery filters it sends, and the advertisements it makes
// of InterfacesAdded and PropertiesChanged.
#include "bluetooth_le_scanner.h"

#include <gtest/gtest.h>

#include "bluez_environment.h"
#include "sightings.h"
#include "test_bytes.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;

std::string const kAdapter = "/org/bluez/hci0";
std::string const kDeviceAddress = "C2:5A:4C:00:00:07";
std::string const kDevicePath = "/org/bluez/hci0/dev_C2_5A_4C_00_00_07";

class BluetoothLEScannerTest : public testing::Test {
protected:
    void SetUp() override { fake().reset(); }

    static FakeBlueZ& fake() { return fakeBlueZ(); }

    /// The scanner initialised on hci0 and discovering, its sightings collected.
    void startScanning() {
        fake().addAdapter("hci0");
        scanner_.setAdvertisementCallback(sightings_.callback());
        ASSERT_TRUE(scanner_.init()) << scanner_.lastError();
        ASSERT_TRUE(scanner_.start()) << scanner_.lastError();
    }

    std::vector<Advertisement> sightingsOf(std::string const& path, size_t count = 1) {
        return sightings_.waitFor([&](Advertisement const& ad) { return ad.objectPath == path; }, count);
    }

    BluetoothLEScanner scanner_;
    Sightings<Advertisement> sightings_;
};

}  // namespace

TEST_F(BluetoothLEScannerTest, InitFindsTheAdapterThroughTheRootObjectManagerAndPowersIt) {
    fake().addAdapter("hci0");
    fake().setProperty(kAdapter, FakeBlueZ::kAdapterInterface, "Powered", false);
    ASSERT_EQ(fake().property(kAdapter, FakeBlueZ::kAdapterInterface, "Powered"), "false");

    ASSERT_TRUE(scanner_.init()) << scanner_.lastError();
    EXPECT_EQ(scanner_.adapterPath(), kAdapter);
    EXPECT_EQ(fake().property(kAdapter, FakeBlueZ::kAdapterInterface, "Powered"), "true");
}

TEST_F(BluetoothLEScannerTest, InitTakesTheAnswerOfTheBluezObjectManagerWhenThereIsOne) {
    fake().addAdapter("hci0");
    fake().addAdapter("hci1");
    fake().addMethod("/org/bluez", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", "", "a{oa{sa{sv}}}",
                     "ret = {dbus.ObjectPath('/org/bluez/hci1'): {'org.bluez.Adapter1': {'Powered': True}}}");

    ASSERT_TRUE(scanner_.init()) << scanner_.lastError();
    EXPECT_EQ(scanner_.adapterPath(), "/org/bluez/hci1");
}

TEST_F(BluetoothLEScannerTest, InitTakesTheLowestAdapterWhenThereAreSeveral) {
    fake().addAdapter("hci2");
    fake().addAdapter("hci1");
    ASSERT_TRUE(scanner_.init()) << scanner_.lastError();
    EXPECT_EQ(scanner_.adapterPath(), "/org/bluez/hci1");
}

TEST_F(BluetoothLEScannerTest, InitWithoutAdapterFailsWithAClearMessage) {
    EXPECT_FALSE(scanner_.init());
    EXPECT_EQ(scanner_.lastError(), "No Bluetooth adapter found");
    EXPECT_EQ(scanner_.adapterPath(), "");
    EXPECT_FALSE(scanner_.start());
}

TEST_F(BluetoothLEScannerTest, InitFailsWhenTheAdapterDoesNotAnswerForItsAddress) {
    fake().addAdapter("hci0");
    fake().addMethod("/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", "", "a{oa{sa{sv}}}",
                     "ret = {dbus.ObjectPath('/org/bluez/hci5'): {'org.bluez.Adapter1': {}}}");
    EXPECT_FALSE(scanner_.init());
    EXPECT_NE(scanner_.lastError().find("org.freedesktop.DBus.Error.UnknownObject"), std::string::npos)
        << scanner_.lastError();
    EXPECT_EQ(scanner_.adapterPath(), "");
}

TEST_F(BluetoothLEScannerTest, InitSetsTheLowEnergyFilterAfterStoppingDiscovery) {
    fake().addAdapter("hci0");
    ASSERT_TRUE(scanner_.init()) << scanner_.lastError();
    EXPECT_EQ(fake().calls(kAdapter), (std::vector<std::string>{
                                          "StopDiscovery()",
                                          R"(SetDiscoveryFilter({"Transport": "le", "DuplicateData": true}))",
                                      }));
}

TEST_F(BluetoothLEScannerTest, FilterChangesStopDiscoveryFirstAndSendTheirDictionary) {
    fake().addAdapter("hci0");
    ASSERT_TRUE(scanner_.init()) << scanner_.lastError();
    fake().clearCalls(kAdapter);

    ASSERT_TRUE(scanner_.setParameters(false)) << scanner_.lastError();
    ASSERT_TRUE(scanner_.setUuidFilters({BleUUID(0x180f)})) << scanner_.lastError();
    ASSERT_TRUE(scanner_.setUuidFilters({BleUUID(0x180f), *BleUUID::parse("EC7C0000-2C7B-1539-172F-29D041BEAB3E")}))
        << scanner_.lastError();
    ASSERT_TRUE(scanner_.setUuidFilters({})) << scanner_.lastError();
    EXPECT_EQ(fake().calls(kAdapter), (std::vector<std::string>{
                                          "StopDiscovery()",
                                          R"(SetDiscoveryFilter({"Transport": "le", "DuplicateData": false}))",
                                          "StopDiscovery()",
                                          R"(SetDiscoveryFilter({"UUIDs": ["0000180f-0000-1000-8000-00805f9b34fb"]}))",
                                          "StopDiscovery()",
                                          R"(SetDiscoveryFilter({"UUIDs": ["0000180f-0000-1000-8000-00805f9b34fb", )"
                                          R"("ec7c0000-2c7b-1539-172f-29d041beab3e"]}))",
                                          "StopDiscovery()",
                                          R"(SetDiscoveryFilter({"UUIDs": []}))",
                                      }));
}

TEST_F(BluetoothLEScannerTest, FilterChangeWhileDiscoveringStopsDiscovery) {
    startScanning();
    ASSERT_EQ(fake().property(kAdapter, FakeBlueZ::kAdapterInterface, "Discovering"), "true");
    ASSERT_TRUE(scanner_.setParameters(true)) << scanner_.lastError();
    EXPECT_EQ(fake().property(kAdapter, FakeBlueZ::kAdapterInterface, "Discovering"), "false");
}

TEST_F(BluetoothLEScannerTest, StartAndStopSwitchDiscovery) {
    startScanning();
    EXPECT_EQ(fake().property(kAdapter, FakeBlueZ::kAdapterInterface, "Discovering"), "true");
    ASSERT_TRUE(scanner_.stop()) << scanner_.lastError();
    EXPECT_EQ(fake().property(kAdapter, FakeBlueZ::kAdapterInterface, "Discovering"), "false");
    std::vector<std::string> const calls = fake().calls(kAdapter);
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[calls.size() - 2], "StartDiscovery()");
    EXPECT_EQ(calls.back(), "StopDiscovery()");
}

TEST_F(BluetoothLEScannerTest, StopReportsTheDaemonsRefusal) {
    startScanning();
    fake().addMethod(kAdapter, FakeBlueZ::kAdapterInterface, "StopDiscovery", "", "",
                     "raise dbus.exceptions.DBusException('No discovery started', name='org.bluez.Error.Failed')");
    EXPECT_FALSE(scanner_.stop());
    EXPECT_EQ(scanner_.lastError(), "org.bluez.Error.Failed: No discovery started");
}

TEST_F(BluetoothLEScannerTest, ScanningResumesAfterStopAndStart) {
    startScanning();
    ASSERT_TRUE(scanner_.stop()) << scanner_.lastError();
    ASSERT_TRUE(scanner_.start()) << scanner_.lastError();
    fake().announceDevice(kDevicePath, {{"Address", kDeviceAddress}, {"Name", std::string("Shed")}});
    ASSERT_EQ(sightingsOf(kDevicePath).size(), 1u);
}

TEST_F(BluetoothLEScannerTest, StartRefusedReleasesTheScanner) {
    fake().addAdapter("hci0");
    ASSERT_TRUE(scanner_.init()) << scanner_.lastError();
    fake().addMethod(kAdapter, FakeBlueZ::kAdapterInterface, "StartDiscovery", "", "",
                     "raise dbus.exceptions.DBusException('Operation already in progress', "
                     "name='org.bluez.Error.InProgress')");
    EXPECT_FALSE(scanner_.start());
    EXPECT_EQ(scanner_.lastError(), "org.bluez.Error.InProgress: Operation already in progress");
    EXPECT_EQ(scanner_.adapterPath(), "");
    EXPECT_FALSE(scanner_.setParameters(true));
    EXPECT_EQ(scanner_.lastError(), "The Bluetooth LE scanner is not initialised");
}

TEST_F(BluetoothLEScannerTest, InterfacesAddedGivesTheDevicesProperties) {
    startScanning();
    std::vector<uint8_t> const payload = fromHex("23 32 01 00 f1 53 65");
    fake().announceDevice(kDevicePath, {
                                           {"Address", kDeviceAddress},
                                           {"AddressType", std::string("random")},
                                           {"Name", std::string("Garage")},
                                           {"RSSI", int16_t{-61}},
                                           {"UUIDs", std::vector<std::string>{"0000180f-0000-1000-8000-00805f9b34fb",
                                                                              "ec7c0000-2c7b-1539-172f-29d041beab3e"}},
                                           {"ManufacturerData", ManufacturerEntries{{0x04C9, payload}, {0x004C, {7}}}},
                                       });
    std::vector<Advertisement> const seen = sightingsOf(kDevicePath);
    ASSERT_EQ(seen.size(), 1u);
    Advertisement const& ad = seen[0];
    EXPECT_TRUE(ad.hasAddress);
    EXPECT_EQ(hex(ad.address), "07 00 00 4c 5a c2");
    EXPECT_TRUE(ad.randomAddress);
    EXPECT_EQ(ad.name, "Garage");
    EXPECT_EQ(ad.rssi, -61);
    ASSERT_EQ(ad.serviceUuids.size(), 2u);
    EXPECT_EQ(ad.serviceUuids[0], BleUUID(0x180f));
    EXPECT_EQ(ad.serviceUuids[1].toString(), "ec7c0000-2c7b-1539-172f-29d041beab3e");
    ASSERT_EQ(ad.manufacturerData.size(), 2u);
    EXPECT_EQ(ad.manufacturerData[0].first, 0x04C9);
    EXPECT_EQ(ad.manufacturerData[0].second, payload);
    EXPECT_EQ(ad.manufacturerData[1].first, 0x004C);
    EXPECT_EQ(hex(ad.manufacturerData[1].second), "07");
}

TEST_F(BluetoothLEScannerTest, PropertiesChangedGivesTheDevicesWholePropertySet) {
    startScanning();
    std::string const path = fake().addDevice("hci0", kDeviceAddress, "Cabin");
    ASSERT_EQ(path, kDevicePath);
    ASSERT_EQ(sightingsOf(path).size(), 1u);  // its InterfacesAdded

    fake().setProperty(path, FakeBlueZ::kDeviceInterface, "RSSI", int16_t{-42});
    std::vector<Advertisement> seen = sightingsOf(path, 2);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[1].rssi, -42);
    EXPECT_EQ(seen[1].name, "Cabin");
    EXPECT_TRUE(seen[1].hasAddress);
    EXPECT_EQ(hex(seen[1].address), "07 00 00 4c 5a c2");
    EXPECT_FALSE(seen[1].randomAddress);

    fake().setProperty(path, FakeBlueZ::kDeviceInterface, "ManufacturerData", ManufacturerEntries{{0x04C9, {1, 2, 3}}});
    seen = sightingsOf(path, 3);
    ASSERT_EQ(seen.size(), 3u);
    ASSERT_EQ(seen[2].manufacturerData.size(), 1u);
    EXPECT_EQ(seen[2].manufacturerData[0].first, 0x04C9);
    EXPECT_EQ(hex(seen[2].manufacturerData[0].second), "01 02 03");
    EXPECT_EQ(seen[2].rssi, -42);
}

TEST_F(BluetoothLEScannerTest, AddressTypeSetsAndClearsRandomAddress) {
    startScanning();
    std::string const path = fake().addDevice("hci0", kDeviceAddress, "Cabin");
    struct Step {
        char const* type;
        bool random;
    };
    Step const steps[] = {{"random", true}, {"public", false}, {"static", true}, {"public", false}};
    size_t expected = 1;  // the InterfacesAdded of the device
    for (Step const& step : steps) {
        fake().setProperty(path, FakeBlueZ::kDeviceInterface, "AddressType", std::string(step.type));
        std::vector<Advertisement> const seen = sightingsOf(path, ++expected);
        ASSERT_EQ(seen.size(), expected) << step.type;
        EXPECT_EQ(seen.back().randomAddress, step.random) << step.type;
    }
}

TEST_F(BluetoothLEScannerTest, ShortAddressLeavesTheAddressUnset) {
    startScanning();
    fake().announceDevice(kDevicePath, {{"Address", std::string("C2:5A:4C:00:07")}, {"Name", std::string("Short")}});
    std::vector<Advertisement> const seen = sightingsOf(kDevicePath);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_FALSE(seen[0].hasAddress);
    EXPECT_EQ(hex(seen[0].address), "00 00 00 00 00 00");
    EXPECT_EQ(seen[0].name, "Short");
}

TEST_F(BluetoothLEScannerTest, SignalsAboutOtherObjectsAreDropped) {
    startScanning();
    fake().addAdapter("hci1");  // InterfacesAdded without a device
    fake().setProperty("/org/bluez/hci1", FakeBlueZ::kAdapterInterface, "Powered", false);  // PropertiesChanged
    // Signals arrive in the order sent: once this device is seen, the others have been handled.
    fake().announceDevice(kDevicePath, {{"Address", kDeviceAddress}});
    ASSERT_EQ(sightingsOf(kDevicePath).size(), 1u);
    std::vector<Advertisement> const all = sightings_.all();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].objectPath, kDevicePath);
}
