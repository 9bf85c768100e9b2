#pragma once

#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "dbus_handles.h"
#include "dbus_values.h"

/// BlueZ as python3-dbusmock's bluez5 template plays it, on a D-Bus daemon of
/// the test binary's own that DBUS_SYSTEM_BUS_ADDRESS names: the real system
/// bus is never used. The fake records every call of an object's methods and
/// emits PropertiesChanged for every property set through it. A call to it
/// that fails throws std::runtime_error with the D-Bus error.
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
    /// no usable ManufacturerData), announced by InterfacesAdded; its path.
    std::string addDevice(std::string const& address, std::string const& name);
    void setProperty(std::string const& path, char const* interface, std::string const& name,
                     PropertyValue const& value);
    /// An adapter property as text: strings quoted, true or false, [a], {k: v}.
    std::string adapterProperty(std::string const& path, std::string const& name);
    /// Every method call the object recorded, in order, as "Method(arguments)".
    std::vector<std::string> calls(std::string const& path);
    /// Replaces a method without arguments with `code`, its Python body.
    void addMethod(std::string const& path, char const* interface, std::string const& name,
                   std::string const& outSignature, std::string const& code);

private:
    /// Calls `method` with `texts` as string arguments, then `value` as a variant.
    DBusMessagePtr call(std::string const& path, char const* interface, char const* method,
                        std::vector<std::string> const& texts = {}, PropertyValue const* value = nullptr);

    std::unique_ptr<ChildProcess> bus_;
    std::unique_ptr<ChildProcess> mock_;
    DBusConnection* connection_ = nullptr;
};

/// The fake of this test binary, started on first use: before anything opens
/// the system bus, whose address libdbus reads once per process.
FakeBlueZ& fakeBlueZ();
