#include "device_server.h"

#include <utility>

#include "simulated_device.h"

namespace sim {

DeviceServer::DeviceServer(SimulatedDevice& device, std::string address, uint16_t port)
    : listener_(std::move(address), port, SessionRoute{SessionMode::Plain, 0, [&device](uint8_t const*, size_t) {
                                                           // A restarting device takes no connection.
                                                           return device.online() ? &device : nullptr;
                                                       }}) {}

}  // namespace sim
