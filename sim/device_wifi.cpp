#include "device_wifi.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sim {

namespace {

constexpr size_t kSsidLength = 32;

// The networks around the device, with the passwords that join them
// (docs/simulated-device.md lists them for the people who try it out).
struct NetworkAround {
    char const* ssid;
    char const* password;  // "" for an open network: any password joins it
    uint8_t security;      // 0 open, 1 WEP, 2 WPA, 3 WPA2, 4 WPA3
    uint8_t channel;
    int8_t signal;  // dBm around which its signal drifts
    bool alwaysInReach;
};
constexpr NetworkAround kAround[] = {
    {"HarbourNet", "harbour-lights", 3, 6, -52, true},
    {"Marina-Guest", "", 0, 1, -67, true},
    {"Skipper", "aye-aye-skipper", 4, 3, -60, true},
    {"Sunseeker-5", "sundowner55", 3, 11, -63, false},
    {"OldBoat", "bilge", 1, 9, -80, false},
    {"Camper-WiFi", "campfire2024", 2, 13, -74, false},
    {"Lighthouse-AP", "keeper-of-light", 3, 4, -84, false},
};

// The others come and go: each is within reach in a share of the minutes.
constexpr int64_t kReachSlotSeconds = 60;
constexpr uint64_t kReachPercent = 60;
// Signals drift slowly by up to this much, and flicker every few seconds.
constexpr double kDriftDb = 6;
constexpr int64_t kDriftPeriodSeconds = 300;
constexpr int64_t kFlickerSeconds = 5;
constexpr int kFlickerDb = 2;
constexpr int kWeakest = -95;
constexpr int kStrongest = -30;

// splitmix64: a well-mixed number from any input, so that the networks'
// comings and goings follow the seed and the time and nothing else.
uint64_t mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31);
}

uint64_t mix(uint64_t seed, size_t place, int64_t slot, uint64_t purpose) {
    return mix(mix(mix(seed ^ purpose) + place) + static_cast<uint64_t>(slot));
}

int64_t floorDiv(int64_t a, int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }

bool joins(NetworkAround const& network, std::string_view password) {
    return network.security == 0 || password == network.password;
}

}  // namespace

DeviceWifi::DeviceWifi(WifiKind kind, uint64_t seed, std::string_view network, int64_t now) : kind_(kind), seed_(seed) {
    if (network.empty()) return;
    StoredNetwork initial;
    initial.ssid = network.substr(0, kSsidLength);
    if (std::optional<size_t> const p = place(initial.ssid)) {
        initial.password = kAround[*p].password;
        initial.security = kAround[*p].security;
        initial.lastSignal = signalAt(*p, now);
    }
    stored_.push_back(initial);
    network_ = initial.ssid;
    status_ = WifiStatus::Connected;
    addressObtained_ = true;
}

size_t DeviceWifi::inUse() const {
    if (status_ != WifiStatus::Connected) return stored_.size();
    auto it =
        std::find_if(stored_.begin(), stored_.end(), [this](StoredNetwork const& n) { return n.ssid == network_; });
    return static_cast<size_t>(it - stored_.begin());
}

void DeviceWifi::catchUp(int64_t now) {
    for (;;) {
        int64_t const connectedAt = joinStart_ + kConnectingSeconds;
        if (status_ == WifiStatus::Connecting && now >= connectedAt) {
            endConnecting();
        } else if (status_ == WifiStatus::Connected && !addressObtained_ && now >= connectedAt + kAddressSeconds) {
            addressObtained_ = true;
        } else if (kind_ == WifiKind::NetworkList &&
                   (status_ == WifiStatus::NotConnected || status_ == WifiStatus::Failed)) {
            std::optional<size_t> const next = choice(now);
            if (!next) return;
            startJoin(stored_[*next], now);
        } else {
            return;
        }
    }
}

std::vector<NetworkInReach> DeviceWifi::scan(int64_t now) {
    std::vector<NetworkInReach> found;
    for (size_t p = 0; p < std::size(kAround); ++p) {
        if (!inReach(p, now)) continue;
        NetworkAround const& n = kAround[p];
        found.push_back({n.ssid, n.security, n.channel, signalAt(p, now), static_cast<uint8_t>(p)});
        if (StoredNetwork* stored = find(n.ssid)) stored->lastSignal = found.back().signal;
    }
    std::stable_sort(found.begin(), found.end(),
                     [](NetworkInReach const& a, NetworkInReach const& b) { return a.signal > b.signal; });
    return found;
}

std::optional<int8_t> DeviceWifi::signalInUse(int64_t now) const {
    size_t const index = inUse();
    if (index == stored_.size()) return std::nullopt;
    std::optional<size_t> const p = place(network_);
    return p ? signalAt(*p, now) : stored_[index].lastSignal;
}

bool DeviceWifi::store(StoredNetwork const& network) {
    if (kind_ == WifiKind::OneNetwork) {
        stored_.assign(1, network);
        return true;
    }
    if (StoredNetwork* known = find(network.ssid)) {
        known->password = network.password;
        known->security = network.security;
        known->metered = network.metered;
        known->mayJoin = true;
        return true;
    }
    if (stored_.size() >= kMaxNetworks) return false;
    stored_.push_back(network);
    return true;
}

bool DeviceWifi::join(StoredNetwork const& network, int64_t now) {
    if (!store(network)) return false;
    startJoin(*find(network.ssid), now);
    return true;
}

void DeviceWifi::remove(size_t index) {
    if (stored_[index].ssid == network_) {
        status_ = WifiStatus::NotConnected;
        network_.clear();
        addressObtained_ = false;
    }
    stored_.erase(stored_.begin() + static_cast<std::ptrdiff_t>(index));
}

StoredNetwork* DeviceWifi::find(std::string_view ssid) {
    auto it = std::find_if(stored_.begin(), stored_.end(), [ssid](StoredNetwork const& n) { return n.ssid == ssid; });
    return it != stored_.end() ? &*it : nullptr;
}

std::optional<size_t> DeviceWifi::place(std::string_view ssid) const {
    for (size_t p = 0; p < std::size(kAround); ++p)
        if (ssid == kAround[p].ssid) return p;
    return std::nullopt;
}

bool DeviceWifi::inReach(size_t place, int64_t time) const {
    // The network the device is on, or joining, stays within reach.
    bool const held =
        (status_ == WifiStatus::Connecting || status_ == WifiStatus::Connected) && network_ == kAround[place].ssid;
    if (kAround[place].alwaysInReach || held) return true;
    return mix(seed_, place, floorDiv(time, kReachSlotSeconds), 1) % 100 < kReachPercent;
}

int8_t DeviceWifi::signalAt(size_t place, int64_t time) const {
    double const phase = static_cast<double>(mix(seed_, place, 0, 2) % 1000) / 1000 * 2 * std::numbers::pi;
    double const drift =
        kDriftDb *
        std::sin(2 * std::numbers::pi * static_cast<double>(time) / static_cast<double>(kDriftPeriodSeconds) + phase);
    auto const flicker =
        static_cast<int>(mix(seed_, place, floorDiv(time, kFlickerSeconds), 3) % (2 * kFlickerDb + 1)) - kFlickerDb;
    long const signal = std::lround(kAround[place].signal + drift) + flicker;
    return static_cast<int8_t>(std::clamp<long>(signal, kWeakest, kStrongest));
}

void DeviceWifi::startJoin(StoredNetwork const& network, int64_t at) {
    std::optional<size_t> const p = place(network.ssid);
    joinSucceeds_ = p && inReach(*p, at) && joins(kAround[*p], network.password);
    network_ = network.ssid;
    status_ = WifiStatus::Connecting;
    joinStart_ = at;
    addressObtained_ = false;
}

void DeviceWifi::endConnecting() {
    status_ = joinSucceeds_ ? WifiStatus::Connected : WifiStatus::Failed;
    StoredNetwork* entry = find(network_);
    if (!entry) return;
    entry->failed = !joinSucceeds_;
    entry->mayJoin = joinSucceeds_;
    std::optional<size_t> const p = place(network_);
    if (joinSucceeds_ && p) entry->lastSignal = signalAt(*p, joinStart_ + kConnectingSeconds);
}

std::optional<size_t> DeviceWifi::choice(int64_t time) const {
    std::optional<size_t> best;
    int8_t bestSignal = kSignalNeverSeen;
    for (size_t i = 0; i < stored_.size(); ++i) {
        std::optional<size_t> const p = place(stored_[i].ssid);
        if (!stored_[i].mayJoin || !p || !inReach(*p, time)) continue;
        int8_t const signal = signalAt(*p, time);
        if (!best || signal > bestSignal) {
            best = i;
            bestSignal = signal;
        }
    }
    return best;
}

}  // namespace sim
