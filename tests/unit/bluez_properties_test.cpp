// BlueZ's device property dictionaries, from messages built in memory, and the
// choice of adapter; the bus tests read BlueZ's signals through a fake BlueZ.
#include "bluez_properties.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <optional>

#include "dbus_handles.h"
#include "dbus_values.h"
#include "test_bytes.h"

namespace {

using namespace std::string_literals;

/// What readDeviceProperties makes of `properties`, as one line.
std::string read(Properties const& properties) {
    DBusMessagePtr const message(dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN));
    DBusMessageIter iter;
    dbus_message_iter_init_append(message.get(), &iter);
    appendProperties(&iter, properties);
    dbus_message_iter_init(message.get(), &iter);
    BluetoothLEScanner::Advertisement ad;
    readDeviceProperties(&iter, ad);
    std::string out = (ad.hasAddress ? "address " : "no address ") + hex(ad.address);
    if (ad.randomAddress) out += ", random";
    if (!ad.name.empty()) out += ", name " + ad.name;
    for (BleUUID const& uuid : ad.serviceUuids) out += ", uuid " + uuid.toString();
    if (ad.rssi != -32768) out += ", rssi " + std::to_string(ad.rssi);
    for (auto const& [company, bytes] : ad.manufacturerData) out += fmt::format(", {:04x}: {}", company, hex(bytes));
    return out;
}

std::string const kNothing = "no address 00 00 00 00 00 00";

}  // namespace

// The bus tests see every property land in its field. Here: an address is kept
// only when all six fields parse, any address type but "public" means a random
// address, and unused properties, unreadable UUIDs and values of an unexpected
// type are skipped.
TEST(DeviceProperties, OnlyWhatParsesIsTaken) {
    std::pair<Properties, std::string> const cases[] = {
        {{{"Address", "c2:5a:4c:0a:0b:ff"s}}, "address ff 0b 0a 4c 5a c2"},
        {{{"Address", "C2:5A:4C:00:01"s}}, kNothing},
        {{{"Address", "C2-5A-4C-00-00-01"s}}, kNothing},
        {{{"AddressType", "public"s}}, kNothing},
        {{{"AddressType", "Public"s}}, kNothing + ", random"},
        {{{"AddressType", ""s}}, kNothing + ", random"},
        {{{"Alias", "not the name"s}, {"UUIDs", std::vector<std::string>{"nonsense", "180f"}}},
         kNothing + ", uuid 180f"},
        {{{"Address", true},
          {"Name", int16_t{7}},
          {"RSSI", "-40"s},
          {"UUIDs", "180f"s},
          {"ManufacturerData", std::vector<std::string>{"04c9"}},
          {"AddressType", int16_t{1}}},
         kNothing},
    };
    for (auto const& [properties, fields] : cases) EXPECT_EQ(read(properties), fields);
}

// Numbered hci paths by their number, before any other path; those in text order.
TEST(PreferredAdapter, LowestAdapterIndexWins) {
    std::pair<std::vector<std::string>, std::optional<std::string>> const cases[] = {
        {{}, std::nullopt},
        {{"/org/bluez/hci10", "/org/bluez/hci2"}, "/org/bluez/hci2"},
        {{"/org/bluez/radio", "/org/bluez/hci3"}, "/org/bluez/hci3"},
        {{"/org/bluez/hci1x", "/org/bluez/hci7"}, "/org/bluez/hci7"},
        {{"/org/bluez/b", "/org/bluez/a"}, "/org/bluez/a"},
    };
    for (auto const& [paths, chosen] : cases)
        EXPECT_EQ(preferredAdapter(paths), chosen) << testing::PrintToString(paths);
}
