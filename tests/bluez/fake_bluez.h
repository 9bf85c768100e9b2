#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "dbus_handles.h"
#include "dbus_values.h"

/// BlueZ as python3-dbusmock's bluez5 template plays it, on a D-Bus daemon of
/// the test binary's own that DBUS_SYSTEM_BUS_ADDRESS names, so the real
/// system bus is never used. The fake answers GetManagedObjects at "/" (an
/// error at "/org/bluez"), records every call of an object's methods, and
/// emits PropertiesChanged for every property set through it. Every call to
/// it that fails throws std::runtime_error with the D-Bus error.
class FakeBlueZ {
public:
    static constexpr char kAdapter[] = "/org/bluez/hci0";
    static constexpr char kAdapterInterface[] = "org.bluez.Adapter1";
    static constexpr char kDeviceInterface[] = "org.bluez.Device1";

    /// Starts the bus and the fake, and waits until the fake owns org.bluez.
    FakeBlueZ();
    ~FakeBlueZ();
    FakeBlueZ(FakeBlueZ const&) = delete;
    FakeBlueZ& operator=(FakeBlueZ const&) = delete;

    /// Back to a fresh start: no device, no recorded call, and a powered
    /// adapter "hci0" at kAdapter unless told otherwise.
    void reset(bool withAdapter = true);
    /// A device on hci0 as the template adds it (public address, RSSI -79,
    /// ManufacturerData nested one array too deep), announced by
    /// InterfacesAdded; gives its path.
    std::string addDevice(std::string const& address, std::string const& name);
    /// Properties.Set on the object: the fake emits PropertiesChanged.
    void setProperty(std::string const& path, char const* interface, std::string const& name,
                     PropertyValue const& value);
    /// An adapter property as text: strings quoted, true or false, [a, b], {k: v}.
    std::string adapterProperty(std::string const& path, std::string const& name);
    /// Every method call the object recorded, in order, as "Method(arguments)".
    std::vector<std::string> calls(std::string const& path);
    /// Adds or replaces a method without arguments; `code` is its Python body
    /// (result in `ret`, errors raised as dbus.exceptions.DBusException).
    void addMethod(std::string const& path, char const* interface, std::string const& name,
                   std::string const& outSignature, std::string const& code);

private:
    DBusMessagePtr call(std::string const& path, char const* interface, char const* method,
                        std::function<void(DBusMessageIter*)> const& write = {});

    std::unique_ptr<ChildProcess> bus_;
    std::unique_ptr<ChildProcess> mock_;
    DBusConnection* connection_ = nullptr;
};

/// The fake of this test binary, started on first use: before anything in the
/// process opens the system bus, since libdbus reads its address only once.
FakeBlueZ& fakeBlueZ();
