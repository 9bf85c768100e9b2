#include "hub_relay.h"

#include <algorithm>
#include <utility>

#include "simulated_device.h"

namespace sim {

HubRelay::HubRelay(std::string address, uint16_t port)
    : listener_(std::move(address), port,
                SessionRoute{SessionMode::Hub, DeviceSession::kHelloSize,
                             [this](uint8_t const* hello, size_t length) { return find(hello, length); }}) {}

void HubRelay::addDevice(SimulatedDevice& device) {
    std::lock_guard lock(mutex_);
    devices_.push_back(&device);
}

SimulatedDevice* HubRelay::find(uint8_t const* hello, size_t length) {
    if (length != DeviceSession::kHelloSize || hello[0] != DeviceSession::kHelloVersion) return nullptr;
    std::lock_guard lock(mutex_);
    auto const named = std::find_if(devices_.begin(), devices_.end(), [hello](SimulatedDevice* device) {
        Zelmor::WifiAccessKey const key = device->accessKey();
        return std::equal(key.keyId.begin(), key.keyId.end(), hello + 1);
    });
    return named != devices_.end() && (*named)->online() ? *named : nullptr;
}

}  // namespace sim
