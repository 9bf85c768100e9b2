// The request operations of ZelmorRequest that are one command and one answer.
#include <cstring>
#include <limits>

#include "byte_io.h"
#include "records.h"
#include "zelmor_request.h"

namespace {

// Command codes, grouped by area: 0x0_ live data, 0x1_ meters, 0x2_
// configuration and calibration, 0x4_ logs, 0x5_ schedules, 0x6_/0x7_ WiFi,
// 0xD_ debug, 0xF_ reboot. Locks (0x3_) and transfers live with their exchanges.
enum Command : uint16_t {
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
    kGetAuthKey = 0x35,
    kResetAuthKey = 0x36,
    kClearUserPasswordLock = 0x37,
    kClearMasterPasswordLock = 0x38,
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
    kEraseDebug = 0xDE,
    kReboot = 0xFB,
};

// Longest name the rename command carries.
constexpr size_t kMaxNameLength = 32;

template <class T>
std::vector<uint8_t> le(T value) {
    std::vector<uint8_t> out;
    ByteWriter(out).write(value);
    return out;
}

uint32_t scheduleIndex(uint64_t index) {
    // The device counts its timers in 32 bits; a larger index is out of range
    // for it either way.
    return index > std::numeric_limits<uint32_t>::max() ? std::numeric_limits<uint32_t>::max()
                                                        : static_cast<uint32_t>(index);
}

// Records whose answer is refused as "invalid device response" when a refusal
// code arrives together with a payload.
template <class Record>
bool refusedWithPayload(Zelmor::ResponseCode code, size_t length,
                        Zelmor::RecordCallback<Record> const& callback) {
    if (code == Zelmor::ResponseCode::Success) return false;
    callback(length > 0 ? Zelmor::ResponseCode::InvalidDeviceResponse : code, Record{});
    return true;
}

}  // namespace

template <class Record, class Decoder>
void ZelmorRequest::enqueueRecord(uint16_t command, RecordCallback<Record> callback, Decoder decode) {
    enqueue(command, {}, kDefaultTimeoutMs,
            [callback = std::move(callback), decode](ResponseCode code, uint8_t const* data, size_t length) {
                Record record{};
                if (code == ResponseCode::Success) code = decode(data, length, record);
                if (code != ResponseCode::Success) record = Record{};
                callback(code, record);
            });
}

void ZelmorRequest::enqueueDone(uint16_t command, std::vector<uint8_t> payload, DoneCallback callback) {
    enqueue(command, std::move(payload), kDefaultTimeoutMs,
            [callback = std::move(callback)](ResponseCode code, uint8_t const*, size_t) { callback(code); });
}

void ZelmorRequest::requestGetInfo(RecordCallback<DeviceInfo> callback) {
    enqueueRecord<DeviceInfo>(kGetInfo, std::move(callback),
                              [this](uint8_t const* data, size_t length, DeviceInfo& info) {
                                  ResponseCode const code = decodeDeviceInfo(data, length, info);
                                  if (code == ResponseCode::Success) {
                                      std::lock_guard lock(infoMutex_);
                                      deviceInfo_ = info;
                                  }
                                  return code;
                              });
}

void ZelmorRequest::requestGetMonitorData(RecordCallback<MonitorData> callback) {
    enqueueRecord<MonitorData>(kGetMonitorData, std::move(callback), decodeMonitorData);
}

void ZelmorRequest::requestGetStatistics(RecordCallback<MonitorStatistics> callback) {
    enqueueRecord<MonitorStatistics>(kGetStatistics, std::move(callback), decodeMonitorStatistics);
}

void ZelmorRequest::requestGetFgStatistics(RecordCallback<FuelgaugeStatistics> callback) {
    enqueueRecord<FuelgaugeStatistics>(kGetFgStatistics, std::move(callback), decodeFuelgaugeStatistics);
}

void ZelmorRequest::requestClearUserPasswordLock(DoneCallback callback) {
    enqueueDone(kClearUserPasswordLock, {}, std::move(callback));
}

void ZelmorRequest::requestClearMasterPasswordLock(DoneCallback callback) {
    enqueueDone(kClearMasterPasswordLock, {}, std::move(callback));
}

void ZelmorRequest::requestGetAuthKey(RecordCallback<AuthKey> callback) {
    enqueue(kGetAuthKey, {}, kDefaultTimeoutMs,
            [callback = std::move(callback)](ResponseCode code, uint8_t const* data, size_t length) {
                if (refusedWithPayload(code, length, callback)) return;
                AuthKey key{};
                code = decodeAuthKey(data, length, key);
                callback(code, key);
            });
}

void ZelmorRequest::requestResetAuthKey(DoneCallback callback) { enqueueDone(kResetAuthKey, {}, std::move(callback)); }

void ZelmorRequest::requestResetEnergyMeter(DoneCallback callback) {
    enqueueDone(kResetEnergyMeter, {}, std::move(callback));
}

void ZelmorRequest::requestResetCoulombMeter(DoneCallback callback) {
    enqueueDone(kResetCoulombMeter, {}, std::move(callback));
}

void ZelmorRequest::requestResetStatistics(DoneCallback callback) {
    enqueueDone(kResetStatistics, {}, std::move(callback));
}

void ZelmorRequest::requestSetPowerState(bool on, DoneCallback callback) {
    enqueueDone(kSetPowerState, {static_cast<uint8_t>(on ? 1 : 0)}, std::move(callback));
}

void ZelmorRequest::requestGetConfig(RecordCallback<ZelmorConfig> callback) {
    enqueueRecord<ZelmorConfig>(kGetConfig, std::move(callback), decodeConfig);
}

void ZelmorRequest::requestSetConfig(ZelmorConfig const& config, DoneCallback callback) {
    enqueueDone(kSetConfig, {config.image().begin(), config.image().end()}, std::move(callback));
}

void ZelmorRequest::requestResetConfig(DoneCallback callback) { enqueueDone(kResetConfig, {}, std::move(callback)); }

void ZelmorRequest::requestRename(std::string const& name, DoneCallback callback) {
    std::vector<uint8_t> payload(name.begin(), name.begin() + static_cast<long>(std::min(name.size(), kMaxNameLength)));
    enqueueDone(kRename, std::move(payload), std::move(callback));
}

void ZelmorRequest::requestSetTime(uint32_t time, DoneCallback callback) {
    enqueueDone(kSetTime, le(time), std::move(callback));
}

void ZelmorRequest::requestFgSynchronize(DoneCallback callback) {
    enqueueDone(kFgSynchronize, {}, std::move(callback));
}

void ZelmorRequest::requestStartWifiScan(DoneCallback callback) {
    enqueueDone(kStartWifiScan, {}, std::move(callback));
}

void ZelmorRequest::requestWifiConfigure(WifiNetwork const& network, DoneCallback callback) {
    enqueueDone(kWifiConfigure, encodeWifiNetwork(network), std::move(callback));
}

void ZelmorRequest::requestGetWifiNetworks(RecordCallback<std::vector<WifiNetwork>> callback) {
    enqueue(kGetWifiNetworks, {}, kDefaultTimeoutMs,
            [callback = std::move(callback)](ResponseCode code, uint8_t const* data, size_t length) {
                if (refusedWithPayload(code, length, callback)) return;
                std::vector<WifiNetwork> networks;
                decodeWifiNetworkList(data, length, networks);
                callback(code, networks);
            });
}

void ZelmorRequest::requestAddWifiNetwork(WifiNetwork const& network, DoneCallback callback) {
    enqueueDone(kAddWifiNetwork, encodeWifiNetwork(network), std::move(callback));
}

void ZelmorRequest::requestRemoveWifiNetwork(uint8_t index, DoneCallback callback) {
    enqueueDone(kRemoveWifiNetwork, {index}, std::move(callback));
}

void ZelmorRequest::requestGetAccessKeys(RecordCallback<WifiAccessKey> callback) {
    enqueue(kGetAccessKeys, {}, kDefaultTimeoutMs,
            [callback = std::move(callback)](ResponseCode code, uint8_t const* data, size_t length) {
                if (refusedWithPayload(code, length, callback)) return;
                WifiAccessKey key{};
                code = decodeAccessKey(data, length, key);
                callback(code, key);
            });
}

void ZelmorRequest::requestResetAccessKeys(DoneCallback callback) {
    enqueueDone(kResetAccessKeys, {}, std::move(callback));
}

void ZelmorRequest::requestZeroCurrentOffset(DoneCallback callback) {
    enqueueDone(kZeroCurrentOffset, {}, std::move(callback));
}

void ZelmorRequest::requestCalibrateCurrent(float current, DoneCallback callback) {
    enqueueDone(kCalibrateCurrent, le(current), std::move(callback));
}

void ZelmorRequest::requestGetSchedules(RecordCallback<std::vector<ZelmorSchedule>> callback) {
    enqueue(kGetSchedules, {}, kDefaultTimeoutMs,
            [callback = std::move(callback)](ResponseCode code, uint8_t const* data, size_t length) {
                if (refusedWithPayload(code, length, callback)) return;
                std::vector<ZelmorSchedule> schedules;
                decodeSchedules(data, length, schedules);
                callback(code, schedules);
            });
}

void ZelmorRequest::requestAddSchedules(std::vector<ZelmorSchedule> const& schedules, DoneCallback callback) {
    std::vector<uint8_t> payload;
    payload.reserve(schedules.size() * ZelmorSchedule::kSize);
    for (auto const& schedule : schedules) payload.insert(payload.end(), schedule.bytes().begin(), schedule.bytes().end());
    enqueueDone(kAddSchedules, std::move(payload), std::move(callback));
}

void ZelmorRequest::requestUpdateSchedule(uint64_t index, ZelmorSchedule const& schedule, DoneCallback callback) {
    std::vector<uint8_t> payload = le(scheduleIndex(index));
    payload.insert(payload.end(), schedule.bytes().begin(), schedule.bytes().end());
    enqueueDone(kUpdateSchedule, std::move(payload), std::move(callback));
}

void ZelmorRequest::requestDeleteSchedule(uint64_t index, DoneCallback callback) {
    enqueueDone(kDeleteSchedule, le(scheduleIndex(index)), std::move(callback));
}

void ZelmorRequest::requestClearSchedules(DoneCallback callback) {
    enqueueDone(kClearSchedules, {}, std::move(callback));
}

void ZelmorRequest::requestCommitSchedules(DoneCallback callback) {
    enqueueDone(kCommitSchedules, {}, std::move(callback));
}

void ZelmorRequest::requestClearLog(DoneCallback callback) { enqueueDone(kClearLog, {}, std::move(callback)); }

void ZelmorRequest::requestEraseDebug(DoneCallback callback) { enqueueDone(kEraseDebug, {}, std::move(callback)); }

void ZelmorRequest::requestReboot(DoneCallback callback) { enqueueDone(kReboot, {}, std::move(callback)); }
