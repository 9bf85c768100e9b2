// BlueZ's messages reach the scanner from the system bus, where any program
// may own a name or send a signal. Any message libdbus takes apart may come
// to the property readers at any of its arguments: they read what is there
// and skip the rest. What they read writes back as a property dictionary that
// reads the same; an added device has an object path; the objects carrying an
// interface are object paths, and the preferred adapter is one of them.
#include <dbus/dbus.h>

#include <cstdint>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "bluez_properties.h"
#include "dbus_handles.h"
#include "dbus_values.h"
#include "fuzz_check.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;

// The properties BlueZ would publish for what was read.
Properties propertiesOf(Advertisement const& ad) {
    Properties properties;
    if (ad.hasAddress) {
        auto const& a = ad.address;
        properties.emplace_back(
            "Address", fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", a[5], a[4], a[3], a[2], a[1], a[0]));
    }
    properties.emplace_back("AddressType", std::string(ad.randomAddress ? "random" : "public"));
    properties.emplace_back("Name", ad.name);
    std::vector<std::string> uuids;
    for (BleUUID const& uuid : ad.serviceUuids) uuids.push_back(uuid.toString());
    properties.emplace_back("UUIDs", uuids);
    properties.emplace_back("RSSI", ad.rssi);
    properties.emplace_back("ManufacturerData", ad.manufacturerData);
    return properties;
}

bool sameAdvertisement(Advertisement const& a, Advertisement const& b) {
    return a.hasAddress == b.hasAddress && a.address == b.address && a.randomAddress == b.randomAddress &&
           a.name == b.name && a.serviceUuids == b.serviceUuids && a.rssi == b.rssi &&
           a.manufacturerData == b.manufacturerData;
}

void checkReadsBack(Advertisement const& ad) {
    DBusMessagePtr const message(dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN));
    DBusMessageIter iter;
    dbus_message_iter_init_append(message.get(), &iter);
    appendProperties(&iter, propertiesOf(ad));
    dbus_message_iter_init(message.get(), &iter);
    Advertisement again;
    readDeviceProperties(&iter, again);
    fuzzCheck(sameAdvertisement(again, ad), "what was read writes back to properties that read the same");
}

void checkAdapters(std::vector<std::string> const& paths) {
    for (std::string const& path : paths) fuzzCheck(path.starts_with("/"), "an object is an object path");
    std::optional<std::string> const adapter = preferredAdapter(paths);
    fuzzCheck(adapter.has_value() == !paths.empty(), "an adapter is chosen when there is one");
    fuzzCheck(!adapter || std::find(paths.begin(), paths.end(), *adapter) != paths.end(),
              "the chosen adapter is one of them");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    char const* bytes = reinterpret_cast<char const*>(data);
    int const length = static_cast<int>(std::min<size_t>(size, 1 << 20));
    if (dbus_message_demarshal_bytes_needed(bytes, length) != length) return 0;
    ScopedDBusError error;
    DBusMessagePtr const message(dbus_message_demarshal(bytes, length, error.get()));
    if (!message) return 0;

    DBusMessageIter first;
    if (!dbus_message_iter_init(message.get(), &first)) return 0;
    for (DBusMessageIter at = first;;) {
        DBusMessageIter iter = at;
        Advertisement properties;
        readDeviceProperties(&iter, properties);
        checkReadsBack(properties);

        iter = at;
        Advertisement added;
        if (readAddedDevice(&iter, added)) {
            fuzzCheck(added.objectPath.starts_with("/"), "an added device has its object path");
            checkReadsBack(added);
        }
        for (char const* interface : {"org.bluez.Device1", "org.bluez.Adapter1"}) {
            iter = at;
            checkAdapters(objectsWithInterface(&iter, interface));
        }
        if (!dbus_message_iter_next(&at)) break;
    }
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    Properties const device = {
        {"Address", std::string("C2:5A:4C:00:00:01")},
        {"AddressType", std::string("random")},
        {"Name", std::string("Zelmor Boat")},
        {"UUIDs", std::vector<std::string>{"180f", "6e400001-b5a3-f393-e0a9-e50e24dcca9e"}},
        {"RSSI", int16_t{-61}},
        {"ManufacturerData", ManufacturerEntries{{0x04C9, {0x23, 0x01, 0x02, 0x03}}}},
    };
    auto const marshal = [&seeds](DBusMessage* message, auto append) {
        DBusMessageIter iter;
        dbus_message_iter_init_append(message, &iter);
        append(&iter);
        dbus_message_set_serial(message, 1);
        char* buffer = nullptr;
        int length = 0;
        if (dbus_message_marshal(message, &buffer, &length)) {
            seeds.emplace_back(buffer, buffer + length);
            dbus_free(buffer);
        }
        dbus_message_unref(message);
    };
    auto const interfaces = [&device](DBusMessageIter* to, char const* name) {
        appendDictionary(
            to, "{sa{sv}}", std::vector<std::pair<std::string, Properties>>{{name, device}},
            [](DBusMessageIter* entry, Properties const& properties) { appendProperties(entry, properties); });
    };
    marshal(dbus_message_new_signal("/", "org.freedesktop.DBus.ObjectManager", "InterfacesAdded"),
            [&](DBusMessageIter* to) {
                appendBasic(to, DBUS_TYPE_OBJECT_PATH, "/org/bluez/hci0/dev_C2_5A_4C_00_00_01");
                interfaces(to, "org.bluez.Device1");
            });
    marshal(dbus_message_new_signal("/org/bluez/hci0/dev_C2_5A_4C_00_00_01", "org.freedesktop.DBus.Properties",
                                    "PropertiesChanged"),
            [&](DBusMessageIter* to) {
                appendText(to, "org.bluez.Device1");
                appendProperties(to, device);
                appendContainer(to, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING_AS_STRING, [](DBusMessageIter*) {});
            });
    marshal(dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN), [&](DBusMessageIter* to) {
        appendContainer(to, DBUS_TYPE_ARRAY, "{oa{sa{sv}}}", [&](DBusMessageIter* objects) {
            for (char const* path : {"/org/bluez/hci1", "/org/bluez/hci0", "/org/bluez/hci0/dev_C2_5A_4C_00_00_01"})
                appendContainer(objects, DBUS_TYPE_DICT_ENTRY, nullptr, [&](DBusMessageIter* entry) {
                    appendBasic(entry, DBUS_TYPE_OBJECT_PATH, path);
                    interfaces(entry, std::string(path).find("dev_") == std::string::npos ? "org.bluez.Adapter1"
                                                                                          : "org.bluez.Device1");
                });
        });
    });
}
