#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "device_server.h"
#include "fault_injection.h"
#include "firmware_server.h"
#include "hub_relay.h"
#include "lan_announcement.h"
#include "loopback_address.h"
#include "simulated_device_config.h"

namespace sim {

// What a simulated fleet is: devices described by the simulator's options
// ("V,name=Cabin bank,user=bilge"), each on its own loopback address, and where
// the hub relay and the announcements are.

inline constexpr uint8_t kLanModelRevision = 0x10;   // "K": Zelmor-K
inline constexpr uint8_t kWifiModelRevision = 0x41;  // "V": Zelmor-V
inline constexpr uint32_t kLocalHost = 0x7F000001;   // 127.0.0.1
/// The first device's address unless told otherwise; the others follow it.
inline constexpr uint32_t kDefaultBaseAddress = 0x7F000002;  // 127.0.0.2
inline constexpr uint32_t kDefaultLogIntervalSeconds = 60;
inline constexpr uint32_t kDefaultHistoryDays = 2;
/// How long answers are held back when only the share of delayed answers is given.
inline constexpr uint32_t kDefaultAnswerDelayMs = 1000;
/// The log keeps one file per day and at most DeviceLog::kMaxFiles of them.
inline constexpr uint32_t kMaxHistoryDays = 400;
inline constexpr uint32_t kMaxLogIntervalSeconds = 86400;
inline constexpr uint32_t kMaxAnswerDelayMs = 600000;

/// One simulated device as the options describe it. Name, serial and seed are
/// left open by the options unless given, and the address always is, until
/// completeFleet fills them in.
struct DevicePlan {
    uint8_t hardwareRevision = kLanModelRevision;
    std::string name;
    uint64_t serial = 0;
    std::optional<uint64_t> seed;
    std::string userPassword;
    std::string masterPassword;
    uint32_t logIntervalSeconds = kDefaultLogIntervalSeconds;
    uint32_t historyDays = kDefaultHistoryDays;
    uint32_t address = 0;  // host order
    /// False: the device sends no LAN announcements and is found only by its
    /// address or through the hub, like a device on a far-away network.
    bool announced = true;
    /// False: the device only announces itself, with no listener, no hub
    /// channel and no firmware file, like the other equipment of a busy network.
    bool served = true;
    /// What a Zelmor-V keeps: one network, or a list of known networks.
    WifiKind wifi = WifiKind::NetworkList;
    /// Measurements the device shows instead of its battery's.
    std::optional<HeldReading> heldReading;
    FaultSettings faults;
};

/// The devices and where they are served.
struct FleetPlan {
    std::vector<DevicePlan> devices;
    uint16_t devicePort = DeviceServer::kDefaultPort;
    std::optional<LoopbackEndpoint> hub = LoopbackEndpoint{kLocalHost, HubRelay::kDefaultPort};
    std::optional<LoopbackEndpoint> announceTo = LoopbackEndpoint{kLocalHost, kLanAnnouncementPort};
    /// Where the firmware files are served; nothing: no file server.
    std::optional<LoopbackEndpoint> firmwareServer = LoopbackEndpoint{kLocalHost, FirmwareServer::kDefaultPort};
    FirmwareOffer firmwareOffer = FirmwareOffer::Newer;
};

/// A device plan, or a sentence telling the user what is wrong with the text.
struct DevicePlanResult {
    std::optional<DevicePlan> plan;
    std::string error;
};

/// Reads "MODEL[,key=value...]": MODEL K (Zelmor-K, LAN) or V (Zelmor-V, WiFi),
/// then any of name=, serial= (hex), user=, master=, interval= (s), history=
/// (days), seed=, silent, wifi=one|list (Zelmor-V only), reading=
/// (V1:V2:I:P:T, held measurements), drop=, corrupt=,
/// delay= (fractions), delay-ms=, close-after= (bytes), bandwidth= (bytes/s),
/// fail= (CODE[@N]) and stall. What the text leaves out is taken from
/// `defaults`. Values cannot contain commas.
DevicePlanResult parseDevicePlan(std::string_view text, DevicePlan const& defaults);

/// The fleet of a run that names no device: a Zelmor-K, a Zelmor-V, and a
/// Zelmor-V locked with a user password, each otherwise as `defaults`.
std::vector<DevicePlan> defaultFleet(DevicePlan const& defaults);

/// `count` devices that only announce themselves, Zelmor-K and Zelmor-V in
/// turn, each otherwise as `defaults` but with no data log before the start.
std::vector<DevicePlan> announceOnlyDevices(size_t count, DevicePlan const& defaults);

/// Gives every device what its options left open: a name, a serial, a seed
/// (`seed` plus the device's place) and consecutive addresses from `base`.
/// The error text, or empty when every address is a loopback host address.
std::string completeFleet(std::vector<DevicePlan>& devices, uint32_t base, uint64_t seed);

/// Reads "CODE[@N]": the command code in hexadecimal ("0x51" or "51"), and
/// which request with that code fails (from 1); without @N every one does.
std::optional<CommandFailure> parseCommandFailure(std::string_view text);

/// A delay given only as a share of answers holds them back kDefaultAnswerDelayMs.
void applyDelayDefault(FaultSettings& faults, bool delayShareGiven);

/// The device a complete plan describes.
SimulatedDeviceConfig deviceConfig(DevicePlan const& plan);

}  // namespace sim
