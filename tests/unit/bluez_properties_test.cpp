// Reading BlueZ's objects: device property dictionaries, InterfacesAdded
// arguments and the object list, from messages built in memory.
#include "bluez_properties.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "dbus_handles.h"
#include "dbus_values.h"
#include "test_bytes.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;
using Interfaces = std::vector<std::pair<std::string, Properties>>;

/// A message whose arguments `write` puts in; its iterator points at the first.
class Arguments {
public:
    template <class Write>
    explicit Arguments(Write write) : message_(dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN)) {
        DBusMessageIter append;
        dbus_message_iter_init_append(message_.get(), &append);
        write(&append);
        dbus_message_iter_init(message_.get(), &iter_);
    }
    DBusMessageIter* iter() { return &iter_; }

private:
    DBusMessagePtr message_;
    DBusMessageIter iter_{};
};

Advertisement fromProperties(Properties const& properties) {
    Arguments arguments([&](DBusMessageIter* to) { appendProperties(to, properties); });
    Advertisement ad;
    readDeviceProperties(arguments.iter(), ad);
    return ad;
}

Arguments managedObjects(std::vector<std::pair<std::string, Interfaces>> const& objects) {
    return Arguments([&](DBusMessageIter* to) {
        DBusMessageIter dictionary;
        dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, "{oa{sa{sv}}}", &dictionary);
        for (auto const& [path, interfaces] : objects) {
            DBusMessageIter entry;
            dbus_message_iter_open_container(&dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
            appendText(&entry, path, DBUS_TYPE_OBJECT_PATH);
            appendInterfaces(&entry, interfaces);
            dbus_message_iter_close_container(&dictionary, &entry);
        }
        dbus_message_iter_close_container(to, &dictionary);
    });
}

std::string const kDevicePath = "/org/bluez/hci0/dev_C2_5A_4C_00_00_01";

}  // namespace

TEST(DeviceProperties, AddressIsKeptOnlyWhenAllSixFieldsParse) {
    struct Case {
        char const* text;
        std::optional<std::string> bytes;  // least significant first
    };
    Case const cases[] = {
        {"C2:5A:4C:00:00:01", "01 00 00 4c 5a c2"},
        {"c2:5a:4c:0a:0b:ff", "ff 0b 0a 4c 5a c2"},
        {"C2:5A:4C:00:01", std::nullopt},
        {"C2:5A", std::nullopt},
        {"", std::nullopt},
        {"C2-5A-4C-00-00-01", std::nullopt},
        {"ZZ:5A:4C:00:00:01", std::nullopt},
    };
    for (Case const& c : cases) {
        Advertisement const ad = fromProperties({{"Address", std::string(c.text)}});
        EXPECT_EQ(ad.hasAddress, c.bytes.has_value()) << c.text;
        EXPECT_EQ(hex(ad.address), c.bytes.value_or("00 00 00 00 00 00")) << c.text;
    }
}

TEST(DeviceProperties, EveryUsedPropertyLandsInItsField) {
    std::vector<uint8_t> const payload = fromHex("23 32 01 00 f1 53 65");
    Advertisement const ad = fromProperties({
        {"Address", std::string("C2:5A:4C:00:00:01")},
        {"AddressType", std::string("random")},
        {"Alias", std::string("not the name")},
        {"Name", std::string("Zelmor")},
        {"Paired", false},
        // Unreadable UUIDs are left out.
        {"UUIDs", std::vector<std::string>{"nonsense", "0000180f-0000-1000-8000-00805f9b34fb", "1234-5678",
                                           "ec7c0000-2c7b-1539-172f-29d041beab3e"}},
        {"RSSI", int16_t{-55}},
        {"ManufacturerData", ManufacturerEntries{{0x04C9, payload}, {0x004C, {1, 2}}}},
    });
    EXPECT_TRUE(ad.hasAddress);
    EXPECT_EQ(hex(ad.address), "01 00 00 4c 5a c2");
    EXPECT_TRUE(ad.randomAddress);
    EXPECT_EQ(ad.name, "Zelmor");
    ASSERT_EQ(ad.serviceUuids.size(), 2u);
    EXPECT_EQ(ad.serviceUuids[0], BleUUID(0x180f));
    EXPECT_EQ(ad.serviceUuids[1].toString(), "ec7c0000-2c7b-1539-172f-29d041beab3e");
    EXPECT_EQ(ad.rssi, -55);
    ASSERT_EQ(ad.manufacturerData.size(), 2u);
    EXPECT_EQ(ad.manufacturerData[0].first, 0x04C9);
    EXPECT_EQ(ad.manufacturerData[0].second, payload);
    EXPECT_EQ(ad.manufacturerData[1].first, 0x004C);
    EXPECT_EQ(hex(ad.manufacturerData[1].second), "01 02");
}

TEST(DeviceProperties, AddressTypeOtherThanPublicMeansRandom) {
    struct Case {
        char const* type;
        bool random;
    };
    for (Case const& c : {Case{"public", false}, Case{"random", true}, Case{"Public", true}, Case{"", true}})
        EXPECT_EQ(fromProperties({{"AddressType", std::string(c.type)}}).randomAddress, c.random) << c.type;
}

// Absent properties, properties of an unexpected type and manufacturer data
// nested one level too deep (aa{qv}) all leave the defaults.
TEST(DeviceProperties, NothingUsableKeepsTheDefaults) {
    Arguments nested([](DBusMessageIter* to) {
        DBusMessageIter dictionary, entry, variant, outer;
        dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, "{sv}", &dictionary);
        dbus_message_iter_open_container(&dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        appendText(&entry, "ManufacturerData");
        dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, "aa{qv}", &variant);
        dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, "a{qv}", &outer);
        dbus_message_iter_close_container(&variant, &outer);
        dbus_message_iter_close_container(&entry, &variant);
        dbus_message_iter_close_container(&dictionary, &entry);
        dbus_message_iter_close_container(to, &dictionary);
    });
    Advertisement fromNested;
    readDeviceProperties(nested.iter(), fromNested);
    Advertisement const unexpected = fromProperties({
        {"Address", true},
        {"Name", int16_t{7}},
        {"RSSI", std::string("-40")},
        {"UUIDs", std::string("180f")},
        {"ManufacturerData", std::vector<std::string>{"04c9"}},
        {"AddressType", int16_t{1}},
    });
    std::pair<char const*, Advertisement> const cases[] = {
        {"absent", fromProperties({{"Paired", true}})}, {"unexpected types", unexpected}, {"nested", fromNested}};
    for (auto const& [name, ad] : cases) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(ad.hasAddress);
        EXPECT_EQ(ad.address, Advertisement{}.address);
        EXPECT_FALSE(ad.randomAddress);
        EXPECT_EQ(ad.name, "");
        EXPECT_TRUE(ad.serviceUuids.empty());
        EXPECT_EQ(ad.rssi, -32768);
        EXPECT_TRUE(ad.manufacturerData.empty());
    }
}

TEST(AddedInterfaces, OnlyObjectsWithTheDeviceInterfaceAreRead) {
    Arguments device([](DBusMessageIter* to) {
        appendText(to, kDevicePath, DBUS_TYPE_OBJECT_PATH);
        appendInterfaces(to, {{"org.freedesktop.DBus.Introspectable", {}},
                              {"org.bluez.Device1", {{"Name", std::string("Van")}, {"RSSI", int16_t{-70}}}}});
    });
    Advertisement ad;
    ASSERT_TRUE(readAddedDevice(device.iter(), ad));
    EXPECT_EQ(ad.objectPath, kDevicePath);
    EXPECT_EQ(ad.name, "Van");
    EXPECT_EQ(ad.rssi, -70);

    Arguments adapter([](DBusMessageIter* to) {
        appendText(to, "/org/bluez/hci1", DBUS_TYPE_OBJECT_PATH);
        appendInterfaces(to, {{"org.bluez.Adapter1", {{"Name", std::string("host")}}}});
    });
    Advertisement notDevice;
    EXPECT_FALSE(readAddedDevice(adapter.iter(), notDevice));
    EXPECT_EQ(notDevice.name, "");
    EXPECT_EQ(notDevice.objectPath, "");
}

TEST(ManagedObjects, ObjectsAreSelectedByInterface) {
    Arguments objects = managedObjects({
        {"/org/bluez", {{"org.bluez.AgentManager1", {}}}},
        {"/org/bluez/hci1", {{"org.freedesktop.DBus.Introspectable", {}}, {"org.bluez.Adapter1", {}}}},
        {kDevicePath, {{"org.bluez.Device1", {}}}},
        {"/org/bluez/hci0", {{"org.bluez.Adapter1", {{"Powered", true}}}}},
    });
    EXPECT_EQ(objectsWithInterface(objects.iter(), "org.bluez.Adapter1"),
              (std::vector<std::string>{"/org/bluez/hci1", "/org/bluez/hci0"}));
    Arguments again = managedObjects({{kDevicePath, {{"org.bluez.Device1", {}}}}});
    EXPECT_TRUE(objectsWithInterface(again.iter(), "org.bluez.Adapter1").empty());
}

TEST(ManagedObjects, LowestAdapterIndexWins) {
    struct Case {
        std::vector<std::string> paths;
        std::optional<std::string> chosen;
    };
    Case const cases[] = {
        {{}, std::nullopt},
        {{"/org/bluez/hci0"}, "/org/bluez/hci0"},
        {{"/org/bluez/hci1", "/org/bluez/hci0"}, "/org/bluez/hci0"},
        {{"/org/bluez/hci10", "/org/bluez/hci2"}, "/org/bluez/hci2"},
        {{"/org/bluez/radio", "/org/bluez/hci3"}, "/org/bluez/hci3"},
        {{"/org/bluez/hci1x", "/org/bluez/hci7"}, "/org/bluez/hci7"},
        {{"/org/bluez/b", "/org/bluez/a"}, "/org/bluez/a"},
    };
    for (Case const& c : cases) EXPECT_EQ(preferredAdapter(c.paths), c.chosen) << testing::PrintToString(c.paths);
}
