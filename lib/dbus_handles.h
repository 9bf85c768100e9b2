#pragma once

#include <dbus/dbus.h>

#include <memory>
#include <string>

/// Owns one reference to a libdbus message.
struct DBusMessageUnref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using DBusMessagePtr = std::unique_ptr<DBusMessage, DBusMessageUnref>;

/// A libdbus error that is freed when it goes out of scope.
class ScopedDBusError {
public:
    ScopedDBusError() { dbus_error_init(&error_); }
    ~ScopedDBusError() { dbus_error_free(&error_); }
    ScopedDBusError(ScopedDBusError const&) = delete;
    ScopedDBusError& operator=(ScopedDBusError const&) = delete;

    DBusError* get() { return &error_; }
    bool isSet() const { return dbus_error_is_set(&error_); }
    /// "name: message"; empty when no error is set.
    std::string text() const {
        if (!isSet()) return {};
        return std::string(error_.name) + ": " + (error_.message ? error_.message : "");
    }

private:
    DBusError error_;
};
