#pragma once

#include <cstdint>

/// Command codes of the device protocol, grouped by area on purpose: 0x0_ live
/// data, 0x1_ meters, 0x2_ configuration and calibration, 0x3_ locks, 0x4_
/// logs, 0x5_ schedules, 0x6_/0x7_ WiFi, 0xD_ debug, 0xF_ firmware and reboot.
/// The gaps are the device's, not ours.
namespace command {
enum : uint16_t {
    kThrowaway = 0x00,  // link encryption start: pushes the first blocks through
    kGetInfo = 0x01,
    kGetStatistics = 0x02,
    kGetFgStatistics = 0x03,
    kGetMonitorData = 0x04,
    kResetEnergyMeter = 0x10,
    kResetCoulombMeter = 0x11,
    kResetStatistics = 0x12,
    kFgSynchronize = 0x13,
    kSetPowerState = 0x14,
    kGetConfig = 0x20,
    kSetConfig = 0x21,
    kResetConfig = 0x22,
    kRename = 0x25,
    kZeroCurrentOffset = 0x26,
    kCalibrateCurrent = 0x27,
    kSetTime = 0x28,
    kLockChallenge = 0x30,
    kUnlock = 0x31,
    kSetUserPasswordLock = 0x33,
    kSetMasterPasswordLock = 0x34,
    kGetAuthKey = 0x35,
    kResetAuthKey = 0x36,
    kClearUserPasswordLock = 0x37,
    kClearMasterPasswordLock = 0x38,
    kGetFileList = 0x40,
    kReadLogFile = 0x44,
    kClearLog = 0x45,
    kGetSchedules = 0x50,
    kAddSchedules = 0x51,
    kUpdateSchedule = 0x52,
    kDeleteSchedule = 0x53,
    kClearSchedules = 0x54,
    kCommitSchedules = 0x55,
    kStartWifiScan = 0x60,
    kWifiConfigure = 0x61,
    kGetAccessKeys = 0x62,
    kResetAccessKeys = 0x63,
    kGetWifiNetworks = 0x70,
    kAddWifiNetwork = 0x71,
    kRemoveWifiNetwork = 0x72,
    kReadDebug = 0xDB,
    kEraseDebug = 0xDE,
    kFirmwareStart = 0xF0,
    kFirmwareBlock = 0xF1,
    kFirmwareFinish = 0xF2,
    kReboot = 0xFB,
};
}  // namespace command
