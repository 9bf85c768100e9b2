#pragma once

#include <cstdint>
#include <string>

#include "session_listener.h"

namespace sim {

class SimulatedDevice;

/// Serves one simulated device over TCP, as a LAN or WiFi device serves the
/// hosts on its network: every connection gets its own plain session, carried
/// with the device's transport faults (see SessionConnection).
class DeviceServer {
public:
    static constexpr uint16_t kDefaultPort = 7208;

    /// `address`: a numeric loopback address, the device's own.
    DeviceServer(SimulatedDevice& device, std::string address, uint16_t port = kDefaultPort);

    /// Binds (SO_REUSEADDR) and starts the accepting thread; false on failure.
    bool start() { return listener_.start(); }
    /// Closes the listener and every connection and joins every thread.
    /// Idempotent; the destructor calls it.
    void stop() { listener_.stop(); }
    /// The system's message for the last failure, with the address.
    std::string error() const { return listener_.error(); }
    /// The bound port; 0 when not listening.
    uint16_t port() const { return listener_.port(); }

private:
    SessionListener listener_;
};

}  // namespace sim
