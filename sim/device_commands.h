#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "device_protocol.h"
#include "device_state.h"

namespace sim {

/// How far a connection has unlocked the device.
enum class AccessLevel : uint8_t { None, User, Master };

inline constexpr size_t kChallengeLength = 32;

/// What the device remembers about one connection.
struct SessionState {
    AccessLevel level = AccessLevel::None;
    /// The challenge of the running lock exchange; good for one use.
    std::optional<std::array<uint8_t, kChallengeLength>> challenge;
    /// The file listing continues after this id; 0 = from the start.
    uint32_t lastListedFileId = 0;
    /// The timers as this connection's edits left them, from its first edit
    /// until it commits them; lost with the connection.
    std::optional<std::vector<ScheduleRecord>> scheduleEdits;
};

/// A command's answer before framing; notifications follow it on the link.
struct CommandResult {
    Status status = Status::Success;
    std::vector<uint8_t> payload;
    std::vector<std::vector<uint8_t>> notifications;
};

/// What a handler works on. The payload length has been checked against the
/// command's row.
struct CommandContext {
    DeviceState& device;
    SessionState& session;
    uint8_t const* payload;
    size_t length;
    std::vector<uint8_t>& answer;
    std::vector<std::vector<uint8_t>>& notifications;
};

using CommandHandler = Status (*)(CommandContext&);

/// The password protection of a command. User: refused with 4 while a user
/// password is set and the session has not unlocked. Master: in addition
/// refused with 5 while a master password is set and the session is not at
/// master level.
enum class Guard : uint8_t { Open, User, Master };

/// The models whose firmware knows a command; the others answer 1.
/// WifiList: the WiFi models that keep a list of known networks.
enum class Models : uint8_t { All, Network, Wifi, WifiList };

inline constexpr size_t kAnyLength = std::numeric_limits<size_t>::max();

struct CommandRow {
    uint16_t code;
    CommandHandler handler;
    Guard guard;
    Models models;
    size_t minLength;  // payload bounds, inclusive; outside them the answer is 2
    size_t maxLength;
};

std::span<CommandRow const> commandTable();

/// Runs one command on a device that has been brought up to date.
CommandResult executeCommand(DeviceState& device, SessionState& session, uint16_t code, uint8_t const* payload,
                             size_t length);

bool isUserLocked(DeviceState const& device, SessionState const& session);
bool isMasterLocked(DeviceState const& device, SessionState const& session);

// Measurements, meters and clock (device_commands_monitor.cpp).
Status getInfo(CommandContext& c);
Status getStatistics(CommandContext& c);
Status getFuelGaugeStatistics(CommandContext& c);
Status getMonitorData(CommandContext& c);
Status resetEnergyMeter(CommandContext& c);
Status resetCoulombMeter(CommandContext& c);
Status resetStatistics(CommandContext& c);
Status fuelGaugeSynchronize(CommandContext& c);
Status setPowerState(CommandContext& c);
Status zeroCurrentOffset(CommandContext& c);
Status calibrateCurrent(CommandContext& c);
Status setTime(CommandContext& c);

// Configuration, name and schedules (device_commands_settings.cpp).
Status getConfig(CommandContext& c);
Status setConfig(CommandContext& c);
Status resetConfig(CommandContext& c);
Status rename(CommandContext& c);
Status getSchedules(CommandContext& c);
Status addSchedules(CommandContext& c);
Status updateSchedule(CommandContext& c);
Status deleteSchedule(CommandContext& c);
Status clearSchedules(CommandContext& c);
Status commitSchedules(CommandContext& c);

// Passwords (device_commands_lock.cpp).
Status getChallenge(CommandContext& c);
Status unlock(CommandContext& c);
Status setUserPassword(CommandContext& c);
Status setMasterPassword(CommandContext& c);
Status getAuthKey(CommandContext& c);
Status resetAuthKey(CommandContext& c);
Status clearUserPassword(CommandContext& c);
Status clearMasterPassword(CommandContext& c);

// Data log and debug area (device_commands_log.cpp).
Status getFileList(CommandContext& c);
Status readLogFile(CommandContext& c);
Status clearLog(CommandContext& c);
Status readDebug(CommandContext& c);
Status eraseDebug(CommandContext& c);

// WiFi and access keys (device_commands_wifi.cpp).
Status startWifiScan(CommandContext& c);
Status wifiConfigure(CommandContext& c);
Status getAccessKeys(CommandContext& c);
Status resetAccessKeys(CommandContext& c);
Status getWifiNetworks(CommandContext& c);
Status addWifiNetwork(CommandContext& c);
Status removeWifiNetwork(CommandContext& c);

// Firmware and reboot (device_commands_system.cpp).
Status firmwareStart(CommandContext& c);
Status firmwareBlock(CommandContext& c);
Status firmwareFinish(CommandContext& c);
Status reboot(CommandContext& c);

}  // namespace sim
