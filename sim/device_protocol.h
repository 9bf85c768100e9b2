#pragma once

#include <cstddef>
#include <cstdint>

// Constants of the wire protocol as the device firmware sees them. The
// simulated device keeps its own copy so that a mistake made on the host side
// is not silently shared by the device side.

namespace sim {

/// Code, sequence number and payload length, 16 bits each.
inline constexpr size_t kFrameHeaderSize = 6;
/// Every answer frame but the last of a long answer carries this code.
inline constexpr uint16_t kContinuationCode = 0x0100;
/// Unsolicited frames (WiFi scan results) carry this code and sequence 0.
inline constexpr uint16_t kNotificationCode = 0x8000;
/// A payload length field is 16 bits.
inline constexpr size_t kMaxFramePayload = 0xFFFF;

/// The status codes a device answers with.
enum class Status : uint16_t {
    Success = 0,
    InvalidRequest = 1,
    InvalidParameter = 2,
    RequestFailed = 3,
    LockedByUser = 4,
    LockedByMaster = 5,
    WrongPassword = 6,
};

namespace command {
inline constexpr uint16_t kGetInfo = 0x01;
inline constexpr uint16_t kGetStatistics = 0x02;
inline constexpr uint16_t kGetFuelGaugeStatistics = 0x03;
inline constexpr uint16_t kGetMonitorData = 0x04;
inline constexpr uint16_t kResetEnergyMeter = 0x10;
inline constexpr uint16_t kResetCoulombMeter = 0x11;
inline constexpr uint16_t kResetStatistics = 0x12;
inline constexpr uint16_t kFuelGaugeSynchronize = 0x13;
inline constexpr uint16_t kSetPowerState = 0x14;
inline constexpr uint16_t kGetConfig = 0x20;
inline constexpr uint16_t kSetConfig = 0x21;
inline constexpr uint16_t kResetConfig = 0x22;
inline constexpr uint16_t kRename = 0x25;
inline constexpr uint16_t kZeroCurrentOffset = 0x26;
inline constexpr uint16_t kCalibrateCurrent = 0x27;
inline constexpr uint16_t kSetTime = 0x28;
inline constexpr uint16_t kGetChallenge = 0x30;
inline constexpr uint16_t kUnlock = 0x31;
inline constexpr uint16_t kSetUserPassword = 0x33;
inline constexpr uint16_t kSetMasterPassword = 0x34;
inline constexpr uint16_t kGetAuthKey = 0x35;
inline constexpr uint16_t kResetAuthKey = 0x36;
inline constexpr uint16_t kClearUserPassword = 0x37;
inline constexpr uint16_t kClearMasterPassword = 0x38;
inline constexpr uint16_t kGetFileList = 0x40;
inline constexpr uint16_t kReadLogFile = 0x44;
inline constexpr uint16_t kClearLog = 0x45;
inline constexpr uint16_t kGetSchedules = 0x50;
inline constexpr uint16_t kAddSchedules = 0x51;
inline constexpr uint16_t kUpdateSchedule = 0x52;
inline constexpr uint16_t kDeleteSchedule = 0x53;
inline constexpr uint16_t kClearSchedules = 0x54;
inline constexpr uint16_t kCommitSchedules = 0x55;
inline constexpr uint16_t kStartWifiScan = 0x60;
inline constexpr uint16_t kWifiConfigure = 0x61;
inline constexpr uint16_t kGetAccessKeys = 0x62;
inline constexpr uint16_t kResetAccessKeys = 0x63;
inline constexpr uint16_t kGetWifiNetworks = 0x70;
inline constexpr uint16_t kAddWifiNetwork = 0x71;
inline constexpr uint16_t kRemoveWifiNetwork = 0x72;
inline constexpr uint16_t kReadDebug = 0xDB;
inline constexpr uint16_t kEraseDebug = 0xDE;
inline constexpr uint16_t kFirmwareStart = 0xF0;
inline constexpr uint16_t kFirmwareBlock = 0xF1;
inline constexpr uint16_t kFirmwareFinish = 0xF2;
inline constexpr uint16_t kReboot = 0xFB;
}  // namespace command

}  // namespace sim
