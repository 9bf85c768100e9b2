#include "ble_radio.h"

#include <unistd.h>

#include <algorithm>

namespace sim {

uint64_t bluetoothAddressValue(std::array<uint8_t, 6> const& fields) {
    uint64_t value = 0;
    for (uint8_t field : fields) value = value << 8 | field;
    return value;
}

BleRadio::BleRadio() : host_([this](int peerSocket, uint64_t address, bool) { connect(peerSocket, address); }) {}

BleRadio::~BleRadio() {
    std::vector<std::shared_ptr<BleDevicePeer>> peers;
    {
        std::lock_guard lock(mutex_);
        peers.swap(peers_);
        for (auto& [address, station] : stations_) peers.push_back(std::move(station.latest));
    }
    for (std::shared_ptr<BleDevicePeer> const& peer : peers)
        if (peer) peer->close();
}

void BleRadio::addDevice(uint64_t address, SimulatedDevice& device, BlePeerOptions options) {
    std::lock_guard lock(mutex_);
    Station& station = stations_[address];
    station.device = &device;
    station.options = options;
}

std::shared_ptr<BleDevicePeer> BleRadio::latestPeer(uint64_t address) const {
    std::lock_guard lock(mutex_);
    auto const found = stations_.find(address);
    return found == stations_.end() ? nullptr : found->second.latest;
}

void BleRadio::connect(int peerSocket, uint64_t address) {
    Station station;
    {
        std::lock_guard lock(mutex_);
        auto const found = stations_.find(address);
        if (found != stations_.end()) station = found->second;
    }
    if (station.device == nullptr) {
        ::close(peerSocket);
        return;
    }
    auto peer = std::make_shared<BleDevicePeer>(peerSocket, *station.device, station.options);
    // Links that have ended are let go here, outside the lock, so that a radio
    // serving many connections does not keep every one of them.
    std::vector<std::shared_ptr<BleDevicePeer>> ended;
    {
        std::lock_guard lock(mutex_);
        auto const stillOpen = std::partition(peers_.begin(), peers_.end(), [](auto const& p) { return !p->closed(); });
        ended.assign(std::make_move_iterator(stillOpen), std::make_move_iterator(peers_.end()));
        peers_.erase(stillOpen, peers_.end());
        peers_.push_back(peer);
        stations_[address].latest = std::move(peer);
    }
}

}  // namespace sim
