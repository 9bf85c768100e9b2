#include <algorithm>
#include <random>

#include "byte_io.h"
#include "device_commands.h"

namespace sim {

namespace {

constexpr size_t kSsidField = 32;
constexpr size_t kPasswordField = 64;
constexpr size_t kNameField = 32;
constexpr size_t kMaxNetworks = 8;
constexpr uint8_t kMaxSecurity = 4;  // WPA3
constexpr uint8_t kAccessKeysFormat = 1;
constexpr int8_t kNeverSeen = -127;

// Scan result and network list flags.
constexpr uint8_t kFlagSaved = 0x01;
constexpr uint8_t kFlagInUse = 0x02;
constexpr uint8_t kListFlagInUse = 0x01;

// The networks within reach of the simulated device.
struct NearbyNetwork {
    char const* ssid;
    uint8_t security;
    uint8_t channel;
};
constexpr NearbyNetwork kNearby[] = {
    {"HarbourNet", 3, 6}, {"Marina-Guest", 0, 1}, {"Sunseeker-5", 3, 11},
    {"Skipper", 4, 3},    {"OldBoat", 1, 9},      {"Camper-WiFi", 2, 13},
};

std::optional<StoredNetwork> parseNetwork(CommandContext const& c) {
    ByteReader r(c.payload, c.length);
    StoredNetwork network;
    network.ssid = r.readString(kSsidField);
    network.password = r.readString(kPasswordField);
    network.security = r.read<uint8_t>();
    if (network.ssid.empty() || network.security > kMaxSecurity) return std::nullopt;
    network.lastSignal = kNeverSeen;
    return network;
}

// Stores a network, replacing the one of the same name; false when there is no room.
bool storeNetwork(DeviceState& d, StoredNetwork const& network) {
    auto it = std::find_if(d.wifiNetworks.begin(), d.wifiNetworks.end(),
                           [&](StoredNetwork const& n) { return n.ssid == network.ssid; });
    if (it != d.wifiNetworks.end()) {
        it->password = network.password;
        it->security = network.security;
        return true;
    }
    if (d.wifiNetworks.size() >= kMaxNetworks) return false;
    d.wifiNetworks.push_back(network);
    return true;
}

bool isSaved(DeviceState const& d, std::string_view ssid) {
    return std::any_of(d.wifiNetworks.begin(), d.wifiNetworks.end(),
                       [&](StoredNetwork const& n) { return n.ssid == ssid; });
}

std::vector<uint8_t> scanResult(DeviceState const& d, std::string_view ssid, int8_t rssi, uint8_t security,
                                uint8_t channel, uint8_t index) {
    bool const inUse = d.wifiStatus == WifiStatus::Connected && d.wifiNetwork == ssid;
    uint8_t const flags = static_cast<uint8_t>((isSaved(d, ssid) ? kFlagSaved : 0) | (inUse ? kFlagInUse : 0));
    // Locally administered BSSIDs, one per network.
    uint8_t const bssid[6] = {0x02, 0x5A, 0x4C, 0x57, 0x00, static_cast<uint8_t>(0x10 + index)};
    std::vector<uint8_t> out;
    ByteWriter(out)
        .writeString(ssid, kSsidField)
        .write<int8_t>(rssi)
        .write<uint8_t>(security)
        .write<uint8_t>(channel)
        .writeBytes(bssid, sizeof bssid)
        .write<uint8_t>(flags);
    return out;
}

}  // namespace

Status startWifiScan(CommandContext& c) {
    DeviceState& d = c.device;
    size_t const count = std::uniform_int_distribution<size_t>(3, 5)(d.rng);
    std::vector<uint8_t> order(std::size(kNearby));
    for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<uint8_t>(i);
    std::shuffle(order.begin(), order.end(), d.rng);
    // The network the device is on, when within reach, is always among the results.
    std::stable_partition(order.begin(), order.end(), [&](uint8_t i) {
        return d.wifiStatus == WifiStatus::Connected && d.wifiNetwork == kNearby[i].ssid;
    });
    order.resize(count);
    std::uniform_int_distribution<int> signal(-88, -40);
    std::vector<std::pair<int8_t, uint8_t>> found;
    for (uint8_t i : order) found.emplace_back(static_cast<int8_t>(signal(d.rng)), i);
    std::sort(found.begin(), found.end(), [](auto const& a, auto const& b) { return a.first > b.first; });
    for (auto const& [rssi, i] : found) {
        NearbyNetwork const& n = kNearby[i];
        c.notifications.push_back(scanResult(d, n.ssid, rssi, n.security, n.channel, i));
        for (StoredNetwork& stored : d.wifiNetworks)
            if (stored.ssid == n.ssid) stored.lastSignal = rssi;
    }
    d.note("WiFi scan: " + std::to_string(found.size()) + " networks");
    return Status::Success;
}

Status wifiConfigure(CommandContext& c) {
    std::optional<StoredNetwork> const network = parseNetwork(c);
    if (!network) return Status::InvalidParameter;
    DeviceState& d = c.device;
    if (!storeNetwork(d, *network)) return Status::RequestFailed;
    d.wifiNetwork = network->ssid;
    d.wifiStatus = WifiStatus::Connected;
    for (StoredNetwork& stored : d.wifiNetworks)
        if (stored.ssid == network->ssid && stored.lastSignal == kNeverSeen)
            stored.lastSignal = static_cast<int8_t>(std::uniform_int_distribution<int>(-75, -45)(d.rng));
    d.note("WiFi joined " + network->ssid);
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
    DeviceState const& d = c.device;
    size_t const inUse = d.wifiNetworkInUse();
    ByteWriter w(c.answer);
    for (size_t i = 0; i < d.wifiNetworks.size(); ++i) {
        StoredNetwork const& n = d.wifiNetworks[i];
        w.writeString(n.ssid, kSsidField).write<uint8_t>(n.security);
        w.write<uint8_t>(i == inUse ? kListFlagInUse : 0).write<int8_t>(n.lastSignal);
    }
    return Status::Success;
}

Status addWifiNetwork(CommandContext& c) {
    std::optional<StoredNetwork> const network = parseNetwork(c);
    if (!network) return Status::InvalidParameter;
    if (!storeNetwork(c.device, *network)) return Status::RequestFailed;
    c.device.note("WiFi network added " + network->ssid);
    return Status::Success;
}

Status removeWifiNetwork(CommandContext& c) {
    DeviceState& d = c.device;
    size_t const index = c.payload[0];
    if (index >= d.wifiNetworks.size()) return Status::InvalidParameter;
    if (index == d.wifiNetworkInUse()) {
        d.wifiStatus = WifiStatus::NotConnected;
        d.wifiNetwork.clear();
    }
    d.note("WiFi network removed " + d.wifiNetworks[index].ssid);
    d.wifiNetworks.erase(d.wifiNetworks.begin() + static_cast<std::ptrdiff_t>(index));
    return Status::Success;
}

}  // namespace sim
