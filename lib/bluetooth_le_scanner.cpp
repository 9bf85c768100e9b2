#include "bluetooth_le_scanner.h"

#include <cstring>
#include <memory>
#include <optional>
#include <variant>

#include "bluez_properties.h"
#include "dbus_handles.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;

constexpr char kBluezService[] = "org.bluez";
constexpr char kAdapterInterface[] = "org.bluez.Adapter1";
constexpr char kDeviceInterface[] = "org.bluez.Device1";
constexpr char kPropertiesInterface[] = "org.freedesktop.DBus.Properties";
constexpr char kObjectManagerInterface[] = "org.freedesktop.DBus.ObjectManager";
// BlueZ documents its object manager at its own root; the daemon (and its
// test doubles) answer at the bus root instead, so both are asked.
constexpr char const* kObjectManagerPaths[] = {"/org/bluez", "/"};
constexpr char const* kMatchRules[] = {
    "type='signal',interface='org.freedesktop.DBus.ObjectManager',member='InterfacesAdded'",
    "type='signal',interface='org.freedesktop.DBus.Properties',member='PropertiesChanged'",
};
// Bounds how long stop() waits for the listening thread to notice.
constexpr int kReadWriteTimeoutMs = 100;
constexpr char kNotInitialised[] = "The Bluetooth LE scanner is not initialised";

struct CallResult {
    DBusMessagePtr reply;
    std::string error;
};

DBusMessagePtr methodCall(std::string const& path, char const* interface, char const* method) {
    return DBusMessagePtr(dbus_message_new_method_call(kBluezService, path.c_str(), interface, method));
}

DBusMessagePtr methodCall(std::string const& path, char const* interface, char const* method,
                          std::initializer_list<char const*> textArguments) {
    DBusMessagePtr message = methodCall(path, interface, method);
    if (!message) return message;
    DBusMessageIter arguments;
    dbus_message_iter_init_append(message.get(), &arguments);
    for (char const* text : textArguments) dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &text);
    return message;
}

CallResult call(DBusConnection* connection, DBusMessagePtr const& request) {
    if (!request) return {nullptr, "org.freedesktop.DBus.Error.NoMemory: Cannot build a method call"};
    ScopedDBusError error;
    DBusMessagePtr reply(
        dbus_connection_send_with_reply_and_block(connection, request.get(), DBUS_TIMEOUT_USE_DEFAULT, error.get()));
    if (!reply) return {nullptr, error.text()};
    return {std::move(reply), {}};
}

DBusConnection* openSystemBus(std::string& error) {
    ScopedDBusError failure;
    DBusConnection* connection = dbus_bus_get_private(DBUS_BUS_SYSTEM, failure.get());
    if (!connection) {
        error = failure.text();
        return nullptr;
    }
    // libdbus would end the whole process when the bus goes away.
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    return connection;
}

void closeConnection(DBusConnection*& connection) {
    if (!connection) return;
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
    connection = nullptr;
}

using FilterValue = std::variant<char const*, bool, std::vector<std::string>>;

struct FilterEntry {
    char const* key;
    FilterValue value;
};

void appendVariant(DBusMessageIter* to, char const* value) {
    DBusMessageIter variant;
    dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, DBUS_TYPE_STRING_AS_STRING, &variant);
    dbus_message_iter_append_basic(&variant, DBUS_TYPE_STRING, &value);
    dbus_message_iter_close_container(to, &variant);
}

void appendVariant(DBusMessageIter* to, bool value) {
    DBusMessageIter variant;
    dbus_bool_t const flag = value ? TRUE : FALSE;
    dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, DBUS_TYPE_BOOLEAN_AS_STRING, &variant);
    dbus_message_iter_append_basic(&variant, DBUS_TYPE_BOOLEAN, &flag);
    dbus_message_iter_close_container(to, &variant);
}

void appendVariant(DBusMessageIter* to, std::vector<std::string> const& texts) {
    DBusMessageIter variant, array;
    dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, "as", &variant);
    dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING_AS_STRING, &array);
    for (std::string const& text : texts) {
        char const* p = text.c_str();
        dbus_message_iter_append_basic(&array, DBUS_TYPE_STRING, &p);
    }
    dbus_message_iter_close_container(&variant, &array);
    dbus_message_iter_close_container(to, &variant);
}

DBusMessagePtr discoveryFilterCall(std::string const& adapterPath, std::vector<FilterEntry> const& entries) {
    DBusMessagePtr message = methodCall(adapterPath, kAdapterInterface, "SetDiscoveryFilter");
    if (!message) return message;
    DBusMessageIter arguments, dictionary;
    dbus_message_iter_init_append(message.get(), &arguments);
    dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &dictionary);
    for (FilterEntry const& e : entries) {
        DBusMessageIter entry;
        dbus_message_iter_open_container(&dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &e.key);
        std::visit([&](auto const& value) { appendVariant(&entry, value); }, e.value);
        dbus_message_iter_close_container(&dictionary, &entry);
    }
    dbus_message_iter_close_container(&arguments, &dictionary);
    return message;
}

std::optional<Advertisement> addedDevice(DBusConnection*, DBusMessage* signal) {
    DBusMessageIter arguments;
    Advertisement advertisement;
    if (!dbus_message_iter_init(signal, &arguments) || !readAddedDevice(&arguments, advertisement)) return std::nullopt;
    return advertisement;
}

/// The signal carries only what changed; the advertisement needs the device's
/// whole property set, so it is read back.
std::optional<Advertisement> changedDevice(DBusConnection* methodConnection, DBusMessage* signal) {
    DBusMessageIter arguments;
    if (!dbus_message_iter_init(signal, &arguments) || dbus_message_iter_get_arg_type(&arguments) != DBUS_TYPE_STRING)
        return std::nullopt;
    char const* interface = nullptr;
    dbus_message_iter_get_basic(&arguments, &interface);
    char const* const path = dbus_message_get_path(signal);
    if (std::strcmp(interface, kDeviceInterface) != 0 || !path) return std::nullopt;

    // A device that went away before it could be asked is simply not reported.
    CallResult const all = call(methodConnection, methodCall(path, kPropertiesInterface, "GetAll", {kDeviceInterface}));
    DBusMessageIter properties;
    if (!all.reply || !dbus_message_iter_init(all.reply.get(), &properties)) return std::nullopt;
    Advertisement advertisement;
    advertisement.objectPath = path;
    readDeviceProperties(&properties, advertisement);
    return advertisement;
}

struct SignalReader {
    char const* interface;
    char const* member;
    std::optional<Advertisement> (*read)(DBusConnection* methodConnection, DBusMessage* signal);
};

constexpr SignalReader kSignalReaders[] = {
    {kObjectManagerInterface, "InterfacesAdded", addedDevice},
    {kPropertiesInterface, "PropertiesChanged", changedDevice},
};

std::optional<Advertisement> advertisementIn(DBusConnection* methodConnection, DBusMessage* signal) {
    for (SignalReader const& reader : kSignalReaders)
        if (dbus_message_is_signal(signal, reader.interface, reader.member))
            return reader.read(methodConnection, signal);
    return std::nullopt;
}

/// A reference of the listening thread's own: the connection stays valid for
/// it after the scanner closed it (libdbus then only reports it disconnected).
std::shared_ptr<DBusConnection> sharedReference(DBusConnection* connection) {
    return std::shared_ptr<DBusConnection>(dbus_connection_ref(connection), dbus_connection_unref);
}

}  // namespace

BluetoothLEScanner::BluetoothLEScanner() = default;

BluetoothLEScanner::~BluetoothLEScanner() { release(); }

bool BluetoothLEScanner::init() {
    release();
    if (!dbus_threads_init_default()) return fail("org.freedesktop.DBus.Error.NoMemory: Cannot set up libdbus threads");
    std::string error;
    methodConnection_ = openSystemBus(error);
    if (methodConnection_) signalConnection_ = openSystemBus(error);
    if (!signalConnection_) {
        release();
        return fail(error);
    }
    if (findAdapter() && powerAdapter() && setParameters(true) && subscribe()) return true;
    release();
    return false;
}

bool BluetoothLEScanner::findAdapter() {
    CallResult objects;
    for (char const* path : kObjectManagerPaths) {
        objects = call(methodConnection_, methodCall(path, kObjectManagerInterface, "GetManagedObjects"));
        if (objects.reply) break;
    }
    DBusMessageIter answer;
    if (!objects.reply) return fail(objects.error);
    if (!dbus_message_iter_init(objects.reply.get(), &answer)) return fail("No Bluetooth adapter found");
    std::optional<std::string> const adapter = preferredAdapter(objectsWithInterface(&answer, kAdapterInterface));
    if (!adapter) return fail("No Bluetooth adapter found");

    // An adapter that does not answer for its own address is not usable.
    CallResult const address =
        call(methodConnection_, methodCall(*adapter, kPropertiesInterface, "Get", {kAdapterInterface, "Address"}));
    if (!address.reply) return fail(address.error);
    std::lock_guard lock(mutex_);
    adapterPath_ = *adapter;
    return true;
}

bool BluetoothLEScanner::powerAdapter() {
    DBusMessagePtr request = methodCall(adapterPath(), kPropertiesInterface, "Set", {kAdapterInterface, "Powered"});
    if (request) {
        DBusMessageIter arguments;
        dbus_message_iter_init_append(request.get(), &arguments);
        appendVariant(&arguments, true);
    }
    CallResult const powered = call(methodConnection_, request);
    return powered.reply || fail(powered.error);
}

bool BluetoothLEScanner::subscribe() {
    subscribed_ = true;
    for (char const* rule : kMatchRules) {
        // With an error to fill, AddMatch waits for the bus: no signal sent
        // after init() returns can be missed.
        ScopedDBusError error;
        dbus_bus_add_match(signalConnection_, rule, error.get());
        if (error.isSet()) return fail(error.text());
    }
    dbus_connection_flush(signalConnection_);
    return true;
}

bool BluetoothLEScanner::setParameters(bool duplicateData) {
    if (!methodConnection_) return fail(kNotInitialised);
    // BlueZ refuses StopDiscovery when not discovering; that is no reason to keep the old filter.
    stopDiscovery();
    CallResult const set = call(
        methodConnection_, discoveryFilterCall(adapterPath(), {{"Transport", "le"}, {"DuplicateData", duplicateData}}));
    return set.reply || fail(set.error);
}

bool BluetoothLEScanner::setUuidFilters(std::vector<BleUUID> const& uuids) {
    if (!methodConnection_) return fail(kNotInitialised);
    stopDiscovery();
    std::vector<std::string> texts;
    for (BleUUID const& uuid : uuids) texts.push_back(uuid.toString128());
    CallResult const set = call(methodConnection_, discoveryFilterCall(adapterPath(), {{"UUIDs", texts}}));
    return set.reply || fail(set.error);
}

bool BluetoothLEScanner::start() {
    if (!methodConnection_) return fail(kNotInitialised);
    if (listener_.listening()) return true;
    if (!dbus_connection_get_is_connected(signalConnection_)) {
        listener_.leave();
        if (!reconnectSignals()) {
            release();
            return false;
        }
    }
    CallResult const started = call(methodConnection_, methodCall(adapterPath(), kAdapterInterface, "StartDiscovery"));
    if (!started.reply) {
        release();
        return fail(started.error);
    }
    return listener_.start([this] { return listeningLoop(); });
}

bool BluetoothLEScanner::reconnectSignals() {
    closeConnection(signalConnection_);
    subscribed_ = false;
    // BlueZ still discovers for the method connection and refuses a second
    // start from one client; its refusal when it does not is of no matter.
    call(methodConnection_, methodCall(adapterPath(), kAdapterInterface, "StopDiscovery"));
    std::string error;
    signalConnection_ = openSystemBus(error);
    return signalConnection_ ? subscribe() : fail(error);
}

bool BluetoothLEScanner::stop() {
    if (!methodConnection_) return fail(kNotInitialised);
    std::string error = stopDiscovery();
    return error.empty() || fail(std::move(error));
}

std::string BluetoothLEScanner::stopDiscovery() {
    CallResult const stopped = call(methodConnection_, methodCall(adapterPath(), kAdapterInterface, "StopDiscovery"));
    listener_.stop();
    return stopped.error;
}

void BluetoothLEScanner::release() {
    listener_.leave();
    if (signalConnection_ && subscribed_) {
        for (char const* rule : kMatchRules) dbus_bus_remove_match(signalConnection_, rule, nullptr);
        dbus_connection_flush(signalConnection_);
    }
    subscribed_ = false;
    closeConnection(methodConnection_);
    closeConnection(signalConnection_);
    std::lock_guard lock(mutex_);
    adapterPath_.clear();
}

ListenerThread::Loop BluetoothLEScanner::listeningLoop() const {
    return [signals = sharedReference(signalConnection_), methods = sharedReference(methodConnection_),
            callback = callback_](ListenerThread::Run const& run) {
        // Ends when the bus drops the connection, too.
        while (run.wanted() && dbus_connection_read_write(signals.get(), kReadWriteTimeoutMs)) {
            while (run.wanted()) {
                DBusMessagePtr const message(dbus_connection_pop_message(signals.get()));
                if (!message) break;
                if (std::optional<Advertisement> advertisement = advertisementIn(methods.get(), message.get()))
                    callback(*advertisement);
            }
        }
    };
}

void BluetoothLEScanner::setAdvertisementCallback(AdvertisementCallback callback) {
    callback_.set(std::move(callback));
}

std::string BluetoothLEScanner::adapterPath() const {
    std::lock_guard lock(mutex_);
    return adapterPath_;
}

std::string BluetoothLEScanner::lastError() const {
    std::lock_guard lock(mutex_);
    return error_;
}

bool BluetoothLEScanner::fail(std::string text) {
    std::lock_guard lock(mutex_);
    error_ = std::move(text);
    return false;
}
