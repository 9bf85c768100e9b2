#include <algorithm>

#include "device_commands.h"
#include "hardware_revision.h"
#include "sealed_block.h"

namespace sim {

namespace {

using namespace command;

constexpr size_t kSealed = kSealedBlockSize;
constexpr size_t kNetworkRecord = 100;

// One row per command: what it runs, the password that protects it, the models
// that know it and the payload lengths it takes.
constexpr CommandRow kCommands[] = {
    {kGetInfo, getInfo, Guard::Open, Models::All, 0, 0},
    {kGetStatistics, getStatistics, Guard::User, Models::All, 0, 0},
    {kGetFuelGaugeStatistics, getFuelGaugeStatistics, Guard::User, Models::All, 0, 0},
    {kGetMonitorData, getMonitorData, Guard::User, Models::All, 0, 0},
    {kResetEnergyMeter, resetEnergyMeter, Guard::Master, Models::All, 0, 0},
    {kResetCoulombMeter, resetCoulombMeter, Guard::Master, Models::All, 0, 0},
    {kResetStatistics, resetStatistics, Guard::Master, Models::All, 0, 0},
    {kFuelGaugeSynchronize, fuelGaugeSynchronize, Guard::Master, Models::All, 0, 0},
    {kSetPowerState, setPowerState, Guard::Master, Models::All, 1, 1},
    {kGetConfig, getConfig, Guard::User, Models::All, 0, 0},
    {kSetConfig, setConfig, Guard::Master, Models::All, kConfigImageSize, kConfigImageSize},
    {kResetConfig, resetConfig, Guard::Master, Models::All, 0, 0},
    {kRename, rename, Guard::Master, Models::All, 1, 32},
    {kZeroCurrentOffset, zeroCurrentOffset, Guard::Master, Models::All, 0, 0},
    {kCalibrateCurrent, calibrateCurrent, Guard::Master, Models::All, 4, 4},
    {kSetTime, setTime, Guard::Master, Models::All, 4, 4},
    {kGetChallenge, getChallenge, Guard::Open, Models::All, 0, 0},
    {kUnlock, unlock, Guard::Open, Models::All, kSealed, kSealed},
    {kSetUserPassword, setUserPassword, Guard::Master, Models::All, kSealed, kSealed},
    {kSetMasterPassword, setMasterPassword, Guard::Master, Models::All, kSealed, kSealed},
    {kGetAuthKey, getAuthKey, Guard::Master, Models::All, 0, 0},
    {kResetAuthKey, resetAuthKey, Guard::Master, Models::All, 0, 0},
    {kClearUserPassword, clearUserPassword, Guard::Master, Models::All, 0, 0},
    {kClearMasterPassword, clearMasterPassword, Guard::Master, Models::All, 0, 0},
    {kGetFileList, getFileList, Guard::User, Models::All, 1, 1},
    {kReadLogFile, readLogFile, Guard::User, Models::All, 12, 12},
    {kClearLog, clearLog, Guard::Master, Models::All, 0, 0},
    {kGetSchedules, getSchedules, Guard::User, Models::All, 0, 0},
    {kAddSchedules, addSchedules, Guard::Master, Models::All, kScheduleRecordSize, kAnyLength},
    {kUpdateSchedule, updateSchedule, Guard::Master, Models::All, 4 + kScheduleRecordSize, 4 + kScheduleRecordSize},
    {kDeleteSchedule, deleteSchedule, Guard::Master, Models::All, 4, 4},
    {kClearSchedules, clearSchedules, Guard::Master, Models::All, 0, 0},
    {kCommitSchedules, commitSchedules, Guard::Master, Models::All, 0, 0},
    {kStartWifiScan, startWifiScan, Guard::User, Models::Wifi, 0, 0},
    {kWifiConfigure, wifiConfigure, Guard::Master, Models::Wifi, kNetworkRecord, kNetworkRecord},
    {kGetAccessKeys, getAccessKeys, Guard::User, Models::Network, 0, 0},
    {kResetAccessKeys, resetAccessKeys, Guard::Master, Models::Network, 0, 0},
    {kGetWifiNetworks, getWifiNetworks, Guard::User, Models::WifiList, 0, 0},
    {kAddWifiNetwork, addWifiNetwork, Guard::Master, Models::WifiList, kNetworkRecord, kNetworkRecord},
    {kRemoveWifiNetwork, removeWifiNetwork, Guard::Master, Models::WifiList, 1, 1},
    {kReadDebug, readDebug, Guard::User, Models::All, 8, 8},
    {kEraseDebug, eraseDebug, Guard::Master, Models::All, 0, 0},
    {kFirmwareStart, firmwareStart, Guard::Master, Models::All, 4, 4},
    {kFirmwareBlock, firmwareBlock, Guard::Master, Models::All, 1, FirmwareUpdate::kMaxBlockSize},
    {kFirmwareFinish, firmwareFinish, Guard::Master, Models::All, 0, 0},
    {kReboot, reboot, Guard::Master, Models::All, 0, 0},
};

// Indexed by Models.
constexpr bool (*kModelFilters[])(DeviceState const&) = {
    [](DeviceState const&) { return true; },
    [](DeviceState const& d) { return isNetworkModel(d.hardwareRevision); },
    [](DeviceState const& d) { return isWifiFamily(d.hardwareRevision); },
    [](DeviceState const& d) { return isWifiFamily(d.hardwareRevision) && d.wifi.kind() == WifiKind::NetworkList; },
};

bool knows(Models models, DeviceState const& device) { return kModelFilters[static_cast<size_t>(models)](device); }

Status admit(CommandRow const& row, DeviceState const& device, SessionState const& session, size_t length) {
    if (!knows(row.models, device)) return Status::InvalidRequest;
    if (row.guard != Guard::Open && isUserLocked(device, session)) return Status::LockedByUser;
    if (row.guard == Guard::Master && isMasterLocked(device, session)) return Status::LockedByMaster;
    if (length < row.minLength || length > row.maxLength) return Status::InvalidParameter;
    return Status::Success;
}

}  // namespace

std::span<CommandRow const> commandTable() { return kCommands; }

bool isUserLocked(DeviceState const& device, SessionState const& session) {
    return device.userKey && session.level < AccessLevel::User;
}

bool isMasterLocked(DeviceState const& device, SessionState const& session) {
    return device.masterKey && session.level < AccessLevel::Master;
}

CommandResult executeCommand(DeviceState& device, SessionState& session, uint16_t code, uint8_t const* payload,
                             size_t length) {
    CommandResult result;
    auto const row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                  [code](CommandRow const& r) { return r.code == code; });
    if (row == std::end(kCommands)) {
        result.status = Status::InvalidRequest;
        return result;
    }
    result.status = admit(*row, device, session, length);
    if (result.status != Status::Success) return result;
    CommandContext context{device, session, payload, length, result.payload, result.notifications};
    result.status = row->handler(context);
    // A refused command answers with its code alone.
    if (result.status != Status::Success) {
        result.payload.clear();
        result.notifications.clear();
    }
    return result;
}

}  // namespace sim
