#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "session_connection.h"

namespace sim {

/// A TCP listener on one loopback address whose every connection carries a
/// device session, found by its route. The device server and the hub relay
/// are each one of these. Connections that have ended are cleaned up as new
/// ones arrive, and all of them at stop().
class SessionListener {
public:
    SessionListener(std::string address, uint16_t port, SessionRoute route);
    SessionListener(SessionListener const&) = delete;
    SessionListener& operator=(SessionListener const&) = delete;
    ~SessionListener();

    /// Binds (SO_REUSEADDR) and starts accepting; false, with error() telling
    /// why, when the address is not loopback or cannot be bound. True when
    /// already started.
    bool start();
    /// Closes the listener and every connection and joins every thread.
    /// Idempotent.
    void stop();
    /// The system's message for the last failure.
    std::string error() const;
    /// The bound port (the one chosen by the system when 0 was asked for); 0
    /// when not listening.
    uint16_t port() const { return boundPort_.load(); }
    std::string const& address() const { return address_; }

private:
    void acceptLoop();
    void fail(std::string text);

    std::string const address_;
    uint16_t const port_;
    SessionRoute const route_;
    std::atomic<uint16_t> boundPort_{0};
    std::atomic<bool> stopping_{false};
    int listener_ = -1;
    std::thread acceptThread_;

    mutable std::mutex mutex_;  // guards connections_ and error_
    std::vector<std::unique_ptr<SessionConnection>> connections_;
    std::string error_;
};

}  // namespace sim
