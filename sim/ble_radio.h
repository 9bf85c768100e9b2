#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "ble_device_peer.h"
#include "socket_pair_bluetooth_host.h"

namespace sim {

class SimulatedDevice;

/// A device's Bluetooth address as a host names it: the first field of the
/// text form in the most significant byte. SimulatedDeviceConfig keeps the
/// fields in text order, the order its 0x01 info record carries them, so
/// {0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01} ("C2:5A:4C:00:00:01") is 0xC25A4C000001.
uint64_t bluetoothAddressValue(std::array<uint8_t, 6> const& fields);

/// The air between a host and the simulated Bluetooth LE devices: a
/// SocketPairBluetoothHost whose connections reach the device registered at
/// the address connected to, each served by its own BleDevicePeer. A
/// connection to an address no device answers to is hung up at once, so the
/// host sees the link fail while it is still connecting. The address type the
/// host names is not checked.
///
/// Thread-safe. The devices must outlive the radio.
class BleRadio {
public:
    BleRadio();
    /// Closes every link and joins every peer's thread.
    ~BleRadio();
    BleRadio(BleRadio const&) = delete;
    BleRadio& operator=(BleRadio const&) = delete;

    /// Makes `device` answer at `address` (see bluetoothAddressValue); a device
    /// already there is replaced for new connections.
    void addDevice(uint64_t address, SimulatedDevice& device, BlePeerOptions options = {});
    /// The host to give a Bluetooth LE client.
    SocketPairBluetoothHost& host() { return host_; }
    /// The peer of the newest connection to `address`; null before the first.
    std::shared_ptr<BleDevicePeer> latestPeer(uint64_t address) const;

private:
    struct Station {
        SimulatedDevice* device = nullptr;
        BlePeerOptions options;
        std::shared_ptr<BleDevicePeer> latest;
    };

    void connect(int peerSocket, uint64_t address);

    mutable std::mutex mutex_;
    std::map<uint64_t, Station> stations_;
    std::vector<std::shared_ptr<BleDevicePeer>> peers_;
    // Last: its connections use the members above.
    SocketPairBluetoothHost host_;
};

}  // namespace sim
