#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "dbus_handles.h"
#include "dbus_values.h"

class PrivateSystemBus;

/// BlueZ as python3-dbusmock's bluez5 template plays it on a private bus,
/// driven over a bus connection of the test's own. The fake answers
/// GetManagedObjects at "/" (an error at "/org/bluez"), records every call of
/// the adapter's methods, and emits PropertiesChanged for every property set
/// through it. A call to it that fails throws std::runtime_error with the
/// D-Bus error, which fails the test.
class FakeBlueZ {
public:
    static constexpr char kAdapterInterface[] = "org.bluez.Adapter1";
    static constexpr char kDeviceInterface[] = "org.bluez.Device1";

    /// Starts the fake and waits until it owns the name org.bluez.
    explicit FakeBlueZ(PrivateSystemBus const& bus);
    ~FakeBlueZ();
    FakeBlueZ(FakeBlueZ const&) = delete;
    FakeBlueZ& operator=(FakeBlueZ const&) = delete;

    /// False when the fake did not come up; error() tells why.
    bool started() const { return connection_ != nullptr && error_.empty(); }
    std::string const& error() const { return error_; }

    /// Back to a fresh start: no adapter, no device, no recorded call.
    void reset();
    /// An adapter ("hci0"), powered, with an address of its own; gives its path.
    std::string addAdapter(std::string const& name);
    /// A device as the template adds it (public address, RSSI -79), announced
    /// by InterfacesAdded. Its ManufacturerData there is nested one array too
    /// deep; set the property to give it a usable one. Gives its path.
    std::string addDevice(std::string const& adapter, std::string const& address, std::string const& name);
    /// A device object at `path` with exactly `properties`, announced by an
    /// InterfacesAdded signal that carries them.
    void announceDevice(std::string const& path, Properties const& properties);
    /// Properties.Set on the object: the fake emits PropertiesChanged.
    void setProperty(std::string const& path, char const* interface, std::string const& name,
                     PropertyValue const& value);
    /// Properties.Get, described (see describe()).
    std::string property(std::string const& path, char const* interface, std::string const& name);
    /// Every method call the object recorded, in order, as "Method(arguments)"
    /// with the arguments described.
    std::vector<std::string> calls(std::string const& path);
    void clearCalls(std::string const& path);
    /// Adds or replaces a method of the object; `code` is the Python body
    /// (arguments in `args`, result in `ret`, errors raised as
    /// dbus.exceptions.DBusException).
    void addMethod(std::string const& path, char const* interface, std::string const& name,
                   std::string const& inSignature, std::string const& outSignature, std::string const& code);

private:
    using Writer = std::function<void(DBusMessageIter*)>;
    DBusMessagePtr call(std::string const& path, char const* interface, char const* method, Writer const& write = {});
    std::string waitUntilReady();

    std::string const log_;
    std::unique_ptr<ChildProcess> mock_;
    DBusConnection* connection_ = nullptr;
    std::string error_;
};
