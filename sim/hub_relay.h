#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "session_listener.h"

namespace sim {

class SimulatedDevice;

/// The hub that relays paired devices: a host connects, names a device's
/// channel in its 17-byte hello (0x02, then the 16-byte channel identifier)
/// and is then served by that device over the encrypted link, with the
/// device's transport faults. An unknown channel or another first byte closes
/// the connection. The channel is looked up on every connection, so a device
/// whose access keys were renewed is found under its new identifier only.
class HubRelay {
public:
    static constexpr uint16_t kDefaultPort = 7209;

    explicit HubRelay(std::string address = "127.0.0.1", uint16_t port = kDefaultPort);

    /// Adds a device to those relayed; the device must outlive the relay.
    void addDevice(SimulatedDevice& device);
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
    SimulatedDevice* find(uint8_t const* hello, size_t length);

    std::mutex mutex_;  // guards devices_
    std::vector<SimulatedDevice*> devices_;
    // Last, so that its connections are gone before the devices' list.
    SessionListener listener_;
};

}  // namespace sim
