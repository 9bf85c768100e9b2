#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulated_device_config.h"

namespace sim {

enum class WifiStatus : uint8_t { NotConnected = 0, Connecting = 1, Connected = 2, Failed = 3 };

inline constexpr int8_t kSignalNeverSeen = -127;

/// A network the device keeps, with what it learnt about it.
struct StoredNetwork {
    std::string ssid;
    std::string password;
    uint8_t security = 0;
    bool metered = false;
    /// The last attempt to join it failed; a successful join clears it.
    bool failed = false;
    /// A list device joins it on its own only while this holds: not after a
    /// failed attempt, until the entry is stored again (a new password, say).
    bool mayJoin = true;
    int8_t lastSignal = kSignalNeverSeen;  // dBm
};

/// A network within reach at one moment, as a scan reports it.
struct NetworkInReach {
    std::string_view ssid;
    uint8_t security;
    uint8_t channel;
    int8_t signal;       // dBm
    uint8_t placeIndex;  // the network's place among those around the device
};

/// The device's WiFi: the networks it keeps, the one it is on, and the
/// networks around it. Joining takes device time, as on a real device:
/// connecting for kConnectingSeconds, then connected without an address for
/// kAddressSeconds. The networks within reach and their signals are a
/// function of device time and seed, so a run repeats. Not thread-safe:
/// DeviceState's owner guards it.
class DeviceWifi {
public:
    static constexpr int64_t kConnectingSeconds = 2;
    static constexpr int64_t kAddressSeconds = 1;
    static constexpr size_t kMaxNetworks = 8;

    /// `network`: the network joined at power-on (empty: none), with its
    /// password when it is one of the networks around.
    DeviceWifi(WifiKind kind, uint64_t seed, std::string_view network, int64_t now);

    WifiKind kind() const { return kind_; }
    WifiStatus status() const { return status_; }
    /// The network joined, being joined, or that could not be joined; empty: none.
    std::string const& network() const { return network_; }
    /// Connected and given an address.
    bool hasAddress() const { return status_ == WifiStatus::Connected && addressObtained_; }
    std::vector<StoredNetwork> const& stored() const { return stored_; }
    /// Index of the stored network the device is connected to; the count when none.
    size_t inUse() const;

    /// Runs joins up to `now`; a list device that is on no network then joins
    /// the strongest known network within reach that it may join.
    void catchUp(int64_t now);
    /// The networks within reach at `now`, strongest first; the stored ones
    /// among them remember the signal.
    std::vector<NetworkInReach> scan(int64_t now);
    /// The signal of the network the device is connected to at `now`.
    std::optional<int8_t> signalInUse(int64_t now) const;

    /// Keeps a network: the one-network kind replaces its network, the list
    /// kind updates the entry of that name or adds one. False when the list is full.
    bool store(StoredNetwork const& network);
    /// Stores a network and starts to join it at `now`; false when the list is full.
    bool join(StoredNetwork const& network, int64_t now);
    /// Forgets the entry at `index` (below stored().size()), leaving its
    /// network if the device is on it or joining it.
    void remove(size_t index);

private:
    StoredNetwork* find(std::string_view ssid);
    /// Place among the networks around, or none.
    std::optional<size_t> place(std::string_view ssid) const;
    bool inReach(size_t place, int64_t time) const;
    int8_t signalAt(size_t place, int64_t time) const;
    void startJoin(StoredNetwork const& network, int64_t at);
    void endConnecting();
    /// The known network to join on its own at `time`, if any.
    std::optional<size_t> choice(int64_t time) const;

    WifiKind const kind_;
    uint64_t const seed_;
    std::vector<StoredNetwork> stored_;
    WifiStatus status_ = WifiStatus::NotConnected;
    std::string network_;
    int64_t joinStart_ = 0;
    bool joinSucceeds_ = false;
    bool addressObtained_ = false;
};

}  // namespace sim
