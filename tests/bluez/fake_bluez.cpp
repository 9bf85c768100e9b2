#include "fake_bluez.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "private_system_bus.h"

namespace {

constexpr char kService[] = "org.bluez";
constexpr char kMockInterface[] = "org.freedesktop.DBus.Mock";
constexpr char kBluezMockInterface[] = "org.bluez.Mock";
constexpr char kPropertiesInterface[] = "org.freedesktop.DBus.Properties";
constexpr auto kStartLimit = std::chrono::seconds(30);
constexpr auto kPollInterval = std::chrono::milliseconds(20);

std::string contentOf(std::string const& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string textOf(DBusMessage* reply) {
    DBusMessageIter iter;
    char const* text = nullptr;
    if (!dbus_message_iter_init(reply, &iter) || dbus_message_iter_get_arg_type(&iter) != DBUS_TYPE_STRING)
        throw std::runtime_error("fake BlueZ answered without a text");
    dbus_message_iter_get_basic(&iter, &text);
    return text;
}

}  // namespace

FakeBlueZ::FakeBlueZ(PrivateSystemBus const& bus) : log_(bus.directory() + "/dbusmock.log") {
    // The mock logs every call; a file takes it, where a pipe nobody reads would fill and stall the mock.
    mock_ = std::make_unique<ChildProcess>(
        "/bin/sh",
        std::vector<std::string>{"-c", R"(exec /usr/bin/python3 -m dbusmock --system -t bluez5 >>"$0" 2>&1)", log_},
        std::vector<std::string>{"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()});
    if (!mock_->started()) {
        error_ = "Cannot start dbusmock: " + mock_->error();
        return;
    }
    ScopedDBusError failure;
    connection_ = dbus_connection_open_private(bus.address().c_str(), failure.get());
    if (!connection_ || !dbus_bus_register(connection_, failure.get())) {
        error_ = "Cannot connect to the private bus: " + failure.text();
        return;
    }
    dbus_connection_set_exit_on_disconnect(connection_, FALSE);
    error_ = waitUntilReady();
}

FakeBlueZ::~FakeBlueZ() {
    if (connection_) {
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
    }
    mock_.reset();
}

std::string FakeBlueZ::waitUntilReady() {
    auto const deadline = std::chrono::steady_clock::now() + kStartLimit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (dbus_bus_name_has_owner(connection_, kService, nullptr)) return {};
        // Waiting on the child doubles as the pause between two looks at the bus.
        if (std::optional<int> const status = mock_->wait(kPollInterval))
            return "dbusmock ended with status " + std::to_string(*status) + ": " + contentOf(log_);
    }
    return "dbusmock did not take the name org.bluez in time: " + contentOf(log_);
}

DBusMessagePtr FakeBlueZ::call(std::string const& path, char const* interface, char const* method,
                               Writer const& write) {
    if (!connection_) throw std::runtime_error("fake BlueZ is not running: " + error_);
    DBusMessagePtr request(dbus_message_new_method_call(kService, path.c_str(), interface, method));
    if (write) {
        DBusMessageIter arguments;
        dbus_message_iter_init_append(request.get(), &arguments);
        write(&arguments);
    }
    ScopedDBusError failure;
    DBusMessagePtr reply(
        dbus_connection_send_with_reply_and_block(connection_, request.get(), DBUS_TIMEOUT_USE_DEFAULT, failure.get()));
    if (!reply) throw std::runtime_error(std::string("fake BlueZ ") + method + " on " + path + ": " + failure.text());
    return reply;
}

void FakeBlueZ::reset() { call("/", kMockInterface, "Reset"); }

std::string FakeBlueZ::addAdapter(std::string const& name) {
    return textOf(call("/", kBluezMockInterface, "AddAdapter", [&](DBusMessageIter* to) {
                      appendText(to, name);
                      appendText(to, "zelmor-test-host");
                  }).get());
}

std::string FakeBlueZ::addDevice(std::string const& adapter, std::string const& address, std::string const& name) {
    return textOf(call("/", kBluezMockInterface, "AddDevice", [&](DBusMessageIter* to) {
                      appendText(to, adapter);
                      appendText(to, address);
                      appendText(to, name);
                  }).get());
}

void FakeBlueZ::announceDevice(std::string const& path, Properties const& properties) {
    // The mock adds objects silently, so the signal is sent separately.
    call("/", kMockInterface, "AddObject", [&](DBusMessageIter* to) {
        appendText(to, path);
        appendText(to, kDeviceInterface);
        appendProperties(to, properties);
        DBusMessageIter methods;
        dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, "(ssss)", &methods);
        dbus_message_iter_close_container(to, &methods);
    });
    call("/", kMockInterface, "EmitSignal", [&](DBusMessageIter* to) {
        appendText(to, "org.freedesktop.DBus.ObjectManager");
        appendText(to, "InterfacesAdded");
        appendText(to, "oa{sa{sv}}");
        DBusMessageIter arguments, variant;
        dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, DBUS_TYPE_VARIANT_AS_STRING, &arguments);
        dbus_message_iter_open_container(&arguments, DBUS_TYPE_VARIANT, DBUS_TYPE_OBJECT_PATH_AS_STRING, &variant);
        appendText(&variant, path, DBUS_TYPE_OBJECT_PATH);
        dbus_message_iter_close_container(&arguments, &variant);
        dbus_message_iter_open_container(&arguments, DBUS_TYPE_VARIANT, "a{sa{sv}}", &variant);
        appendInterfaces(&variant, {{kDeviceInterface, properties}});
        dbus_message_iter_close_container(&arguments, &variant);
        dbus_message_iter_close_container(to, &arguments);
    });
}

void FakeBlueZ::setProperty(std::string const& path, char const* interface, std::string const& name,
                            PropertyValue const& value) {
    call(path, kPropertiesInterface, "Set", [&](DBusMessageIter* to) {
        appendText(to, interface);
        appendText(to, name);
        appendVariant(to, value);
    });
}

std::string FakeBlueZ::property(std::string const& path, char const* interface, std::string const& name) {
    DBusMessagePtr const reply = call(path, kPropertiesInterface, "Get", [&](DBusMessageIter* to) {
        appendText(to, interface);
        appendText(to, name);
    });
    DBusMessageIter value;
    dbus_message_iter_init(reply.get(), &value);
    return describe(&value);
}

std::vector<std::string> FakeBlueZ::calls(std::string const& path) {
    DBusMessagePtr const reply = call(path, kMockInterface, "GetCalls");
    std::vector<std::string> result;
    DBusMessageIter list, row;
    dbus_message_iter_init(reply.get(), &list);
    dbus_message_iter_recurse(&list, &row);
    for (; dbus_message_iter_get_arg_type(&row) == DBUS_TYPE_STRUCT; dbus_message_iter_next(&row)) {
        DBusMessageIter field;
        dbus_message_iter_recurse(&row, &field);
        dbus_message_iter_next(&field);  // the time of the call
        char const* method = nullptr;
        dbus_message_iter_get_basic(&field, &method);
        dbus_message_iter_next(&field);
        std::string const arguments = describe(&field);  // "[a, b]"
        result.push_back(method + ("(" + arguments.substr(1, arguments.size() - 2) + ")"));
    }
    return result;
}

void FakeBlueZ::clearCalls(std::string const& path) { call(path, kMockInterface, "ClearCalls"); }

void FakeBlueZ::addMethod(std::string const& path, char const* interface, std::string const& name,
                          std::string const& inSignature, std::string const& outSignature, std::string const& code) {
    call(path, kMockInterface, "AddMethod", [&](DBusMessageIter* to) {
        for (std::string const& text : {std::string(interface), name, inSignature, outSignature, code})
            appendText(to, text);
    });
}
