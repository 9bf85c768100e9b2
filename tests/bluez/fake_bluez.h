#pragma once

#include <stdlib.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "child_process.h"
#include "dbus_handles.h"
#include "dbus_values.h"

/// BlueZ as python3-dbusmock's bluez5 template plays it, on a D-Bus daemon of
/// the test binary's own that DBUS_SYSTEM_BUS_ADDRESS names: the real system
/// bus is never used. A call to it that fails throws std::runtime_error.
class FakeBlueZ {
public:
    static constexpr char kAdapter[] = "/org/bluez/hci0";

    /// The fake of this test binary, started on first use: before anything
    /// opens the system bus, whose address libdbus reads once per process.
    static FakeBlueZ& instance() {
        static FakeBlueZ fake;
        return fake;
    }

    /// Back to a fresh start: no device, an empty log, and a powered
    /// adapter "hci0" at kAdapter unless told otherwise.
    void reset(bool withAdapter = true) {
        call("/", kMockInterface, "Reset");
        if (withAdapter) call("/", "org.bluez.Mock", "AddAdapter", {"hci0", "zelmor-test-host"});
        mock_->takeOutput();
    }
    /// A device on hci0 as the template adds it (public address, RSSI -79,
    /// no usable ManufacturerData), announced by InterfacesAdded; its path.
    std::string addDevice(std::string const& address, std::string const& name) {
        DBusMessagePtr const reply = call("/", "org.bluez.Mock", "AddDevice", {"hci0", address, name});
        char const* path = "";
        dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_STRING, &path, DBUS_TYPE_INVALID);
        return path;
    }
    void setProperty(std::string const& path, std::string const& name, PropertyValue const& value) {
        char const* const interface = path == kAdapter ? kAdapterInterface : "org.bluez.Device1";
        call(path, "org.freedesktop.DBus.Properties", "Set", {interface, name}, &value);
    }
    /// What was done to hci0 since reset() or the last look, as the mock logs
    /// it: its discovery calls ("Method arguments") and property changes
    /// ("Set Property value"). A call the mock refused shows as made.
    std::vector<std::string> adapterLog() {
        std::string const set = std::string("Set ") + kAdapter + " " + kAdapterInterface + ".";
        std::istringstream log(mock_->takeOutput());
        std::vector<std::string> done;
        for (std::string line; std::getline(log, line);) {
            std::string const entry = line.substr(line.find(' ') + 1);
            if (entry.starts_with(set))
                done.push_back("Set " + entry.substr(set.size()));
            else if (entry.find("Discovery") != std::string::npos && entry.find(" raised") == std::string::npos)
                done.push_back(entry);
        }
        return done;
    }
    /// From now on hci0 refuses StartDiscovery as not ready.
    void refuseDiscovery() {
        std::string const code =
            "raise dbus.exceptions.DBusException('Resource Not Ready', name='org.bluez.Error.NotReady')";
        call(kAdapter, kMockInterface, "AddMethod", {kAdapterInterface, "StartDiscovery", "", "", code});
    }

private:
    static constexpr char kService[] = "org.bluez";
    static constexpr char kAdapterInterface[] = "org.bluez.Adapter1";
    static constexpr char kMockInterface[] = "org.freedesktop.DBus.Mock";
    static constexpr auto kStartLimit = std::chrono::seconds(30);

    // A session-type daemon allows everything, which is all the fake needs;
    // its socket is abstract, so it lives in the test's network namespace.
    FakeBlueZ() {
        std::optional<std::string> const address =
            bus_.readLine(std::chrono::duration_cast<std::chrono::milliseconds>(kStartLimit));
        if (!address || address->empty()) throw std::runtime_error("dbus-daemon gave no address: " + bus_.takeErrors());
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address->c_str(), 1);
        mock_ = std::make_unique<ChildProcess>("/usr/bin/python3",
                                               std::vector<std::string>{"-m", "dbusmock", "--system", "-t", "bluez5"});
        ScopedDBusError failure;
        connection_ = dbus_connection_open_private(address->c_str(), failure.get());
        if (!connection_ || !dbus_bus_register(connection_, failure.get()))
            throw std::runtime_error("Cannot connect to the private bus: " + failure.text());
        dbus_connection_set_exit_on_disconnect(connection_, FALSE);
        auto const deadline = std::chrono::steady_clock::now() + kStartLimit;
        while (!dbus_bus_name_has_owner(connection_, kService, nullptr)) {
            // Waiting on the mock doubles as the pause between two looks at the bus.
            if (mock_->wait(std::chrono::milliseconds(20)) || std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("dbusmock did not take the name org.bluez: " + mock_->takeErrors());
        }
    }
    ~FakeBlueZ() {
        if (!connection_) return;
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
    }

    DBusMessagePtr call(std::string const& path, char const* interface, char const* method,
                        std::vector<std::string> const& texts = {}, PropertyValue const* value = nullptr) {
        DBusMessagePtr request(dbus_message_new_method_call(kService, path.c_str(), interface, method));
        DBusMessageIter arguments;
        dbus_message_iter_init_append(request.get(), &arguments);
        for (std::string const& text : texts) appendText(&arguments, text);
        if (value) appendVariant(&arguments, *value);
        ScopedDBusError failure;
        DBusMessagePtr reply(dbus_connection_send_with_reply_and_block(connection_, request.get(),
                                                                       DBUS_TIMEOUT_USE_DEFAULT, failure.get()));
        if (!reply)
            throw std::runtime_error(std::string("fake BlueZ ") + method + " on " + path + ": " + failure.text());
        return reply;
    }

    ChildProcess bus_{"/usr/bin/dbus-daemon", {"--session", "--nofork", "--print-address=1"}};
    std::unique_ptr<ChildProcess> mock_;
    DBusConnection* connection_ = nullptr;
};
