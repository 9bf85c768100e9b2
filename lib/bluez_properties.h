#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bluetooth_le_scanner.h"

struct DBusMessageIter;

// Reading what BlueZ publishes on the bus: the properties of its device
// objects and the list of its objects. Pure functions over message iterators,
// so that they work on any message, sent over a bus or built in memory.

/// Fills `out` from an org.bluez.Device1 property dictionary (a{sv});
/// `properties` points at the dictionary. Properties this scanner does not use,
/// and properties of an unexpected type, are skipped. "Address" is read as six
/// "%02hhx" fields separated by colons into address[5] down to address[0], and
/// kept only when all six fields parse.
void readDeviceProperties(DBusMessageIter* properties, BluetoothLEScanner::Advertisement& out);

/// Reads the arguments of an InterfacesAdded signal (o, a{sa{sv}}), `arguments`
/// pointing at the first. True, with `out` filled and its object path set, when
/// org.bluez.Device1 is among the added interfaces.
bool readAddedDevice(DBusMessageIter* arguments, BluetoothLEScanner::Advertisement& out);

/// The object paths in a GetManagedObjects answer (a{oa{sa{sv}}}) that carry
/// `interface`, in the answer's order.
std::vector<std::string> objectsWithInterface(DBusMessageIter* managedObjects, std::string_view interface);

/// The adapter to scan with: the lowest index of the "/org/bluez/hci%d" paths;
/// paths outside that form come after them, in text order. Nothing for none.
std::optional<std::string> preferredAdapter(std::vector<std::string> const& adapterPaths);
