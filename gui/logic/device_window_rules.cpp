#include "device_window_rules.h"

#include <arpa/inet.h>

#include <fmt/core.h>

#include "hardware_revision.h"

namespace {

constexpr unsigned kDirectPollMs = 1000;
constexpr unsigned kHubPollMs = 2000;

constexpr uint32_t kAccessPointAddress = 0xC0A86401;  // 192.168.100.1
constexpr uint8_t kAccessPointRevision = 0x40;        // a WiFi model

}  // namespace

LinkChoice chooseLink(Zelmor::DeviceIdentifier const& id) {
    if (!isNetworkModel(id.hardwareRevision)) return LinkChoice::Bluetooth;
    return id.ipAddress != 0 ? LinkChoice::Lan : LinkChoice::Hub;
}

Zelmor::WifiAccessKey hubAccessKey(Zelmor::DeviceIdentifier const& id) { return {id.channelId, id.key}; }

unsigned monitorPollMs(bool directConnection) { return directConnection ? kDirectPollMs : kHubPollMs; }

LinkEndOutcome linkEndOutcome(Zelmor::DisconnectReason reason) {
    if (reason == Zelmor::DisconnectReason::ClosedLocally) return {false, nullptr};
    if (reason == Zelmor::DisconnectReason::ConnectFailed) return {true, "Device failed to connect"};
    return {true, "Device disconnected"};
}

Zelmor::DeviceIdentifier identifierFromAdvertisement(ZelmorScanner::Advertisement const& advertisement) {
    Zelmor::DeviceIdentifier id;
    id.name = advertisement.name;
    id.serial = advertisement.serial;
    id.hardwareRevision = advertisement.hardwareRevision;
    id.bluetoothAddress = advertisement.bluetoothAddress;
    id.ipAddress = advertisement.ipAddress;
    return id;
}

Zelmor::DeviceIdentifier wifiDirectIdentifier() {
    Zelmor::DeviceIdentifier id;
    id.name = "Zelmor-V access point";
    id.hardwareRevision = kAccessPointRevision;
    id.ipAddress = htonl(kAccessPointAddress);
    return id;
}

std::string deviceWindowTitle(std::string const& name) { return fmt::format("Zelmor Manager: {}", name); }
