#include <algorithm>
#include <optional>
#include <string>

#include "byte_io.h"
#include "device_commands.h"

namespace sim {

namespace {

constexpr size_t kSsidField = 32;
constexpr size_t kPasswordField = 64;
constexpr size_t kNameField = 32;
constexpr uint8_t kMaxSecurity = 4;  // WPA3
constexpr uint8_t kAccessKeysFormat = 1;

// Network record option bits (byte 97).
constexpr uint8_t kOptionMetered = 0x01;
// Scan result flags.
constexpr uint8_t kFlagSaved = 0x01;
constexpr uint8_t kFlagInUse = 0x02;
// Network list flags.
constexpr uint8_t kListFlagInUse = 0x01;
constexpr uint8_t kListFlagFailed = 0x02;
constexpr uint8_t kListFlagMetered = 0x04;

std::optional<StoredNetwork> parseNetwork(CommandContext const& c) {
    ByteReader r(c.payload, c.length);
    StoredNetwork network;
    network.ssid = r.readString(kSsidField);
    network.password = r.readString(kPasswordField);
    network.security = r.read<uint8_t>();
    network.metered = (r.read<uint8_t>() & kOptionMetered) != 0;
    if (network.ssid.empty() || network.security > kMaxSecurity) return std::nullopt;
    return network;
}

bool isSaved(DeviceWifi const& wifi, std::string_view ssid) {
    return std::any_of(wifi.stored().begin(), wifi.stored().end(),
                       [&](StoredNetwork const& n) { return n.ssid == ssid; });
}

std::vector<uint8_t> scanResult(DeviceWifi const& wifi, NetworkInReach const& n) {
    bool const inUse = wifi.status() == WifiStatus::Connected && wifi.network() == n.ssid;
    uint8_t const flags = static_cast<uint8_t>((isSaved(wifi, n.ssid) ? kFlagSaved : 0) | (inUse ? kFlagInUse : 0));
    // Locally administered BSSIDs, one per network.
    uint8_t const bssid[6] = {0x02, 0x5A, 0x4C, 0x57, 0x00, static_cast<uint8_t>(0x10 + n.placeIndex)};
    std::vector<uint8_t> out;
    ByteWriter(out)
        .writeString(n.ssid, kSsidField)
        .write<int8_t>(n.signal)
        .write<uint8_t>(n.security)
        .write<uint8_t>(n.channel)
        .writeBytes(bssid, sizeof bssid)
        .write<uint8_t>(flags);
    return out;
}

}  // namespace

Status startWifiScan(CommandContext& c) {
    DeviceState& d = c.device;
    std::vector<NetworkInReach> const found = d.wifi.scan(d.now());
    for (NetworkInReach const& n : found) c.notifications.push_back(scanResult(d.wifi, n));
    d.note("WiFi scan: " + std::to_string(found.size()) + " networks");
    return Status::Success;
}

Status wifiConfigure(CommandContext& c) {
    std::optional<StoredNetwork> const network = parseNetwork(c);
    if (!network) return Status::InvalidParameter;
    DeviceState& d = c.device;
    if (!d.wifi.join(*network, d.now())) return Status::RequestFailed;
    d.note("WiFi joining " + network->ssid);
    return Status::Success;
}

Status getAccessKeys(CommandContext& c) {
    DeviceState const& d = c.device;
    ByteWriter(c.answer)
        .write<uint8_t>(kAccessKeysFormat)
        .write<uint64_t>(d.serial)
        .writeString(d.name, kNameField)
        .writeBytes(d.accessKey.keyId.data(), d.accessKey.keyId.size())
        .writeBytes(d.accessKey.key.data(), d.accessKey.key.size());
    return Status::Success;
}

Status resetAccessKeys(CommandContext& c) {
    c.device.renewAccessKey();
    c.device.note("access keys renewed");
    return Status::Success;
}

Status getWifiNetworks(CommandContext& c) {
    DeviceWifi const& wifi = c.device.wifi;
    size_t const inUse = wifi.inUse();
    ByteWriter w(c.answer);
    for (size_t i = 0; i < wifi.stored().size(); ++i) {
        StoredNetwork const& n = wifi.stored()[i];
        auto const flags = static_cast<uint8_t>((i == inUse ? kListFlagInUse : 0) | (n.failed ? kListFlagFailed : 0) |
                                                (n.metered ? kListFlagMetered : 0));
        w.writeString(n.ssid, kSsidField).write<uint8_t>(n.security).write<uint8_t>(flags).write<int8_t>(n.lastSignal);
    }
    return Status::Success;
}

Status addWifiNetwork(CommandContext& c) {
    std::optional<StoredNetwork> const network = parseNetwork(c);
    if (!network) return Status::InvalidParameter;
    if (!c.device.wifi.store(*network)) return Status::RequestFailed;
    c.device.note("WiFi network added " + network->ssid);
    return Status::Success;
}

Status removeWifiNetwork(CommandContext& c) {
    DeviceState& d = c.device;
    size_t const index = c.payload[0];
    if (index >= d.wifi.stored().size()) return Status::InvalidParameter;
    d.note("WiFi network removed " + d.wifi.stored()[index].ssid);
    d.wifi.remove(index);
    return Status::Success;
}

}  // namespace sim
