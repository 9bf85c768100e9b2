#include "bluez_properties.h"

#include <dbus/dbus.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <tuple>

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;

constexpr char kDeviceInterface[] = "org.bluez.Device1";

bool isArrayOf(DBusMessageIter* iter, int elementType) {
    return dbus_message_iter_get_arg_type(iter) == DBUS_TYPE_ARRAY &&
           dbus_message_iter_get_element_type(iter) == elementType;
}

std::optional<std::string> textIn(DBusMessageIter* value) {
    int const type = dbus_message_iter_get_arg_type(value);
    if (type != DBUS_TYPE_STRING && type != DBUS_TYPE_OBJECT_PATH) return std::nullopt;
    char const* text = nullptr;
    dbus_message_iter_get_basic(value, &text);
    return std::string(text);
}

/// Calls `visit(entry)` for every dictionary entry of the array `dictionary`
/// points at, with `entry` positioned on the key.
template <class Visit>
void forEachEntry(DBusMessageIter* dictionary, Visit visit) {
    if (!isArrayOf(dictionary, DBUS_TYPE_DICT_ENTRY)) return;
    DBusMessageIter entries;
    dbus_message_iter_recurse(dictionary, &entries);
    for (; dbus_message_iter_get_arg_type(&entries) == DBUS_TYPE_DICT_ENTRY; dbus_message_iter_next(&entries)) {
        DBusMessageIter entry;
        dbus_message_iter_recurse(&entries, &entry);
        visit(entry);
    }
}

void readAddress(DBusMessageIter* value, Advertisement& out) {
    std::optional<std::string> const text = textIn(value);
    std::array<uint8_t, 6> a{};
    if (!text || std::sscanf(text->c_str(), "%02hhx:%02hhx:%02hhx:%02hhx:%02hhx:%02hhx", &a[5], &a[4], &a[3], &a[2],
                             &a[1], &a[0]) != 6)
        return;
    out.address = a;
    out.hasAddress = true;
}

void readAddressType(DBusMessageIter* value, Advertisement& out) {
    if (std::optional<std::string> const type = textIn(value)) out.randomAddress = *type != "public";
}

void readName(DBusMessageIter* value, Advertisement& out) {
    if (std::optional<std::string> name = textIn(value)) out.name = std::move(*name);
}

void readUuids(DBusMessageIter* value, Advertisement& out) {
    if (!isArrayOf(value, DBUS_TYPE_STRING)) return;
    DBusMessageIter texts;
    dbus_message_iter_recurse(value, &texts);
    out.serviceUuids.clear();
    for (; dbus_message_iter_get_arg_type(&texts) == DBUS_TYPE_STRING; dbus_message_iter_next(&texts)) {
        if (std::optional<BleUUID> const uuid = BleUUID::parse(*textIn(&texts))) out.serviceUuids.push_back(*uuid);
    }
}

void readRssi(DBusMessageIter* value, Advertisement& out) {
    if (dbus_message_iter_get_arg_type(value) == DBUS_TYPE_INT16) dbus_message_iter_get_basic(value, &out.rssi);
}

void readManufacturerData(DBusMessageIter* value, Advertisement& out) {
    std::vector<std::pair<uint16_t, std::vector<uint8_t>>> entries;
    forEachEntry(value, [&](DBusMessageIter& entry) {
        if (dbus_message_iter_get_arg_type(&entry) != DBUS_TYPE_UINT16) return;
        uint16_t company = 0;
        dbus_message_iter_get_basic(&entry, &company);
        dbus_message_iter_next(&entry);
        if (dbus_message_iter_get_arg_type(&entry) != DBUS_TYPE_VARIANT) return;
        DBusMessageIter bytes;
        dbus_message_iter_recurse(&entry, &bytes);
        if (!isArrayOf(&bytes, DBUS_TYPE_BYTE)) return;
        DBusMessageIter array;
        dbus_message_iter_recurse(&bytes, &array);
        uint8_t const* data = nullptr;
        int length = 0;
        dbus_message_iter_get_fixed_array(&array, &data, &length);
        entries.emplace_back(company, std::vector<uint8_t>(data, data + length));
    });
    out.manufacturerData = std::move(entries);
}

struct PropertyReader {
    std::string_view name;
    void (*read)(DBusMessageIter* value, Advertisement& out);
};

constexpr PropertyReader kPropertyReaders[] = {
    {"Address", readAddress}, {"AddressType", readAddressType},           {"Name", readName}, {"UUIDs", readUuids},
    {"RSSI", readRssi},       {"ManufacturerData", readManufacturerData},
};

/// Sort key of an adapter path: template index first, then the text.
std::tuple<int, std::string const&> adapterOrder(std::string const& path) {
    int index = 0;
    int end = 0;
    bool const numbered = std::sscanf(path.c_str(), "/org/bluez/hci%d%n", &index, &end) == 1 &&
                          static_cast<size_t>(end) == path.size() && index >= 0;
    return {numbered ? index : INT_MAX, path};
}

}  // namespace

void readDeviceProperties(DBusMessageIter* properties, Advertisement& out) {
    forEachEntry(properties, [&](DBusMessageIter& entry) {
        std::optional<std::string> const name = textIn(&entry);
        dbus_message_iter_next(&entry);
        if (!name || dbus_message_iter_get_arg_type(&entry) != DBUS_TYPE_VARIANT) return;
        auto const reader = std::find_if(std::begin(kPropertyReaders), std::end(kPropertyReaders),
                                         [&](PropertyReader const& r) { return r.name == *name; });
        if (reader == std::end(kPropertyReaders)) return;
        DBusMessageIter value;
        dbus_message_iter_recurse(&entry, &value);
        reader->read(&value, out);
    });
}

bool readAddedDevice(DBusMessageIter* arguments, Advertisement& out) {
    if (dbus_message_iter_get_arg_type(arguments) != DBUS_TYPE_OBJECT_PATH) return false;
    std::string const path = *textIn(arguments);
    dbus_message_iter_next(arguments);
    bool found = false;
    forEachEntry(arguments, [&](DBusMessageIter& entry) {
        if (found || textIn(&entry) != kDeviceInterface) return;
        dbus_message_iter_next(&entry);
        readDeviceProperties(&entry, out);
        found = true;
    });
    if (found) out.objectPath = path;
    return found;
}

std::vector<std::string> objectsWithInterface(DBusMessageIter* managedObjects, std::string_view interface) {
    std::vector<std::string> paths;
    forEachEntry(managedObjects, [&](DBusMessageIter& object) {
        std::optional<std::string> path = textIn(&object);
        if (!path) return;
        dbus_message_iter_next(&object);
        bool carries = false;
        forEachEntry(&object, [&](DBusMessageIter& entry) { carries = carries || textIn(&entry) == interface; });
        if (carries) paths.push_back(std::move(*path));
    });
    return paths;
}

std::optional<std::string> preferredAdapter(std::vector<std::string> const& adapterPaths) {
    auto const best =
        std::min_element(adapterPaths.begin(), adapterPaths.end(),
                         [](std::string const& a, std::string const& b) { return adapterOrder(a) < adapterOrder(b); });
    if (best == adapterPaths.end()) return std::nullopt;
    return *best;
}
