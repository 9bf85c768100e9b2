#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ble_uuid.h"
#include "listener_thread.h"
#include "shared_callback.h"

struct DBusConnection;

/// Finds advertising Bluetooth LE devices through the BlueZ daemon on the
/// system D-Bus and hands every sighting to one callback. Two bus connections:
/// method calls go over one, signals arrive on the other, so a blocking call
/// never stalls signal delivery. Connecting is done elsewhere, on raw sockets.
///
/// The bus is the one DBUS_SYSTEM_BUS_ADDRESS names, else the system bus.
/// Failures are never thrown: every operation returns false and lastError()
/// tells the D-Bus error.
///
/// Threads: one thread at a time drives the scanner, and the callback, which
/// runs on the listening thread, may be that thread (see ListenerThread for
/// the rules). A stop() there ends listening once the callback returns and a
/// start() after it keeps it going; init() or the destructor there let the
/// thread end by itself, on references of its own to the connections. The
/// thread ends by itself only when the bus drops the signal connection; the
/// next start() then opens a new one.
class BluetoothLEScanner {
public:
    /// One object's org.bluez.Device1 properties. An absent property leaves
    /// its field at the default.
    struct Advertisement {
        /// "Address", least significant byte first; kept only when all six
        /// fields parse (hasAddress).
        std::array<uint8_t, 6> address{};
        bool hasAddress = false;
        /// "AddressType": true for anything but "public".
        bool randomAddress = false;
        std::string name;
        std::vector<BleUUID> serviceUuids;
        int16_t rssi = -32768;  // dBm; -32768 = not reported
        /// "ManufacturerData": (company identifier, bytes), in the order given.
        std::vector<std::pair<uint16_t, std::vector<uint8_t>>> manufacturerData;
        /// The object path the properties came from.
        std::string objectPath;
    };
    using AdvertisementCallback = std::function<void(Advertisement&)>;

    BluetoothLEScanner();
    /// Stops the listening thread and releases both connections.
    ~BluetoothLEScanner();
    BluetoothLEScanner(BluetoothLEScanner const&) = delete;
    BluetoothLEScanner& operator=(BluetoothLEScanner const&) = delete;

    /// Opens both connections, finds the adapter, powers it, sets the filter
    /// {Transport: le, DuplicateData: true} and subscribes to InterfacesAdded
    /// and PropertiesChanged. Any failure releases the connections.
    bool init();
    /// Stops discovery, then sets the filter {Transport: le, DuplicateData}.
    bool setParameters(bool duplicateData);
    /// Stops discovery, then sets the filter {UUIDs}; a 16-bit UUID is sent
    /// inside the base UUID.
    bool setUuidFilters(std::vector<BleUUID> const& uuids);
    /// StartDiscovery, then the listening thread; nothing while listening. A
    /// signal connection the bus dropped is opened anew first (discovery is
    /// stopped before it is started again: BlueZ refuses a second start from
    /// one client). A D-Bus error releases both connections.
    bool start();
    /// StopDiscovery; the listening thread is ended and joined (from the
    /// callback: it ends once the callback returns).
    bool stop();

    /// Called on the listening thread. May be replaced at any time.
    void setAdvertisementCallback(AdvertisementCallback callback);
    /// The adapter's object path, e.g. "/org/bluez/hci0"; empty before init.
    std::string adapterPath() const;
    /// The D-Bus error name and message of the last failure.
    std::string lastError() const;

private:
    bool fail(std::string text);
    bool findAdapter();
    bool powerAdapter();
    bool subscribe();
    bool reconnectSignals();
    // StopDiscovery, then the end of the listening thread; the D-Bus error, empty on success.
    std::string stopDiscovery();
    void release();
    ListenerThread::Loop listeningLoop() const;

    DBusConnection* methodConnection_ = nullptr;
    DBusConnection* signalConnection_ = nullptr;
    bool subscribed_ = false;
    SharedCallback<void(Advertisement&)> callback_;
    mutable std::mutex mutex_;  // guards adapterPath_ and error_
    std::string adapterPath_;
    std::string error_;
    ListenerThread listener_{"zelmor-bluez"};
};
