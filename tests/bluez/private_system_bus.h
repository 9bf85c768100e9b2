#pragma once

#include <memory>
#include <string>

#include "child_process.h"

/// A D-Bus daemon of the system type that only this test process uses: its
/// own configuration (EXTERNAL authentication, everything allowed), its socket
/// in a temporary directory of its own, and DBUS_SYSTEM_BUS_ADDRESS pointing at
/// it, so that libdbus's system bus is this one. libdbus reads that variable
/// once per process: start the bus before anything opens a connection. The
/// daemon runs in the foreground as a child, so that ending it leaves nothing.
class PrivateSystemBus {
public:
    PrivateSystemBus();
    ~PrivateSystemBus();
    PrivateSystemBus(PrivateSystemBus const&) = delete;
    PrivateSystemBus& operator=(PrivateSystemBus const&) = delete;

    /// False when the daemon did not come up; error() tells why.
    bool started() const { return !address_.empty(); }
    std::string const& error() const { return error_; }
    std::string const& address() const { return address_; }
    /// Where the bus keeps its socket, configuration and log; programs on the
    /// bus may keep their logs here too. Removed with the bus.
    std::string const& directory() const { return directory_; }

private:
    std::string directory_;
    std::string address_;
    std::string error_;
    std::unique_ptr<ChildProcess> daemon_;
};
