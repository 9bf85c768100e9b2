#include "fake_bluez.h"

#include <stdlib.h>

#include <chrono>
#include <stdexcept>

namespace {

constexpr char kService[] = "org.bluez";
constexpr char kMockInterface[] = "org.freedesktop.DBus.Mock";
constexpr char kPropertiesInterface[] = "org.freedesktop.DBus.Properties";
constexpr auto kStartLimit = std::chrono::seconds(30);

/// The value at `iter` as text: strings quoted, booleans as true or false,
/// arrays as [a, b], dictionaries as {k: v}, variants as their content.
std::string describe(DBusMessageIter* iter) {
    DBusMessageIter inner;
    switch (dbus_message_iter_get_arg_type(iter)) {
        case DBUS_TYPE_STRING: {
            char const* text = nullptr;
            dbus_message_iter_get_basic(iter, &text);
            return std::string("\"") + text + "\"";
        }
        case DBUS_TYPE_BOOLEAN: {
            dbus_bool_t flag = FALSE;
            dbus_message_iter_get_basic(iter, &flag);
            return flag ? "true" : "false";
        }
        case DBUS_TYPE_VARIANT:
            dbus_message_iter_recurse(iter, &inner);
            return describe(&inner);
        case DBUS_TYPE_DICT_ENTRY: {
            dbus_message_iter_recurse(iter, &inner);
            std::string const key = describe(&inner);
            dbus_message_iter_next(&inner);
            return key + ": " + describe(&inner);
        }
        case DBUS_TYPE_ARRAY: {
            bool const dictionary = dbus_message_iter_get_element_type(iter) == DBUS_TYPE_DICT_ENTRY;
            std::string items;
            dbus_message_iter_recurse(iter, &inner);
            for (; dbus_message_iter_get_arg_type(&inner) != DBUS_TYPE_INVALID; dbus_message_iter_next(&inner))
                items += (items.empty() ? "" : ", ") + describe(&inner);
            return dictionary ? "{" + items + "}" : "[" + items + "]";
        }
        default:
            return "?";
    }
}

}  // namespace

// A session-type daemon allows everything, which is all the fake needs; its
// socket is abstract, so it lives in the test's network namespace.
FakeBlueZ::FakeBlueZ()
    : bus_(std::make_unique<ChildProcess>("/usr/bin/dbus-daemon",
                                          std::vector<std::string>{"--session", "--nofork", "--print-address=1"})) {
    std::optional<std::string> const address =
        bus_->readLine(std::chrono::duration_cast<std::chrono::milliseconds>(kStartLimit));
    if (!address || address->empty()) throw std::runtime_error("dbus-daemon gave no address: " + bus_->takeErrors());
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address->c_str(), 1);
    // The mock logs every call; nobody reads a log here.
    mock_ = std::make_unique<ChildProcess>(
        "/usr/bin/python3", std::vector<std::string>{"-m", "dbusmock", "--system", "-t", "bluez5", "-l", "/dev/null"});
    ScopedDBusError failure;
    connection_ = dbus_connection_open_private(address->c_str(), failure.get());
    if (!connection_ || !dbus_bus_register(connection_, failure.get()))
        throw std::runtime_error("Cannot connect to the private bus: " + failure.text());
    dbus_connection_set_exit_on_disconnect(connection_, FALSE);
    auto const deadline = std::chrono::steady_clock::now() + kStartLimit;
    while (!dbus_bus_name_has_owner(connection_, kService, nullptr)) {
        // Waiting on the mock doubles as the pause between two looks at the bus.
        std::optional<int> const status = mock_->wait(std::chrono::milliseconds(20));
        if (status || std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error("dbusmock did not take the name org.bluez: " + mock_->takeErrors());
    }
}

FakeBlueZ::~FakeBlueZ() {
    if (connection_) {
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
    }
}

FakeBlueZ& fakeBlueZ() {
    static FakeBlueZ fake;
    return fake;
}

DBusMessagePtr FakeBlueZ::call(std::string const& path, char const* interface, char const* method,
                               std::vector<std::string> const& texts, PropertyValue const* value) {
    DBusMessagePtr request(dbus_message_new_method_call(kService, path.c_str(), interface, method));
    DBusMessageIter arguments;
    dbus_message_iter_init_append(request.get(), &arguments);
    for (std::string const& text : texts) appendText(&arguments, text);
    if (value) appendVariant(&arguments, *value);
    ScopedDBusError failure;
    DBusMessagePtr reply(
        dbus_connection_send_with_reply_and_block(connection_, request.get(), DBUS_TIMEOUT_USE_DEFAULT, failure.get()));
    if (!reply) throw std::runtime_error(std::string("fake BlueZ ") + method + " on " + path + ": " + failure.text());
    return reply;
}

void FakeBlueZ::reset(bool withAdapter) {
    call("/", kMockInterface, "Reset");
    if (withAdapter) call("/", "org.bluez.Mock", "AddAdapter", {"hci0", "zelmor-test-host"});
}

std::string FakeBlueZ::addDevice(std::string const& address, std::string const& name) {
    DBusMessagePtr const reply = call("/", "org.bluez.Mock", "AddDevice", {"hci0", address, name});
    char const* path = "";
    dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_STRING, &path, DBUS_TYPE_INVALID);
    return path;
}

void FakeBlueZ::setProperty(std::string const& path, char const* interface, std::string const& name,
                            PropertyValue const& value) {
    call(path, kPropertiesInterface, "Set", {interface, name}, &value);
}

std::string FakeBlueZ::adapterProperty(std::string const& path, std::string const& name) {
    DBusMessagePtr const reply = call(path, kPropertiesInterface, "Get", {kAdapterInterface, name});
    DBusMessageIter value;
    dbus_message_iter_init(reply.get(), &value);
    return describe(&value);
}

// GetCalls gives (time, method, arguments) for each call.
std::vector<std::string> FakeBlueZ::calls(std::string const& path) {
    DBusMessagePtr const reply = call(path, kMockInterface, "GetCalls");
    std::vector<std::string> result;
    DBusMessageIter list, row, field;
    dbus_message_iter_init(reply.get(), &list);
    for (dbus_message_iter_recurse(&list, &row); dbus_message_iter_get_arg_type(&row) == DBUS_TYPE_STRUCT;
         dbus_message_iter_next(&row)) {
        dbus_message_iter_recurse(&row, &field);
        dbus_message_iter_next(&field);
        char const* method = nullptr;
        dbus_message_iter_get_basic(&field, &method);
        dbus_message_iter_next(&field);
        std::string const arguments = describe(&field);
        result.push_back(method + ("(" + arguments.substr(1, arguments.size() - 2) + ")"));
    }
    return result;
}

void FakeBlueZ::addMethod(std::string const& path, char const* interface, std::string const& name,
                          std::string const& outSignature, std::string const& code) {
    call(path, kMockInterface, "AddMethod", {interface, name, "", outSignature, code});
}
