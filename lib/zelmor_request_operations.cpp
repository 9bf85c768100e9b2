// The request operations of ZelmorRequest that are one command and one answer.
#include <cstring>
#include <limits>

#include "byte_io.h"
#include "command_codes.h"
#include "records.h"
#include "zelmor_request.h"

namespace {

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
    enqueueRecord<DeviceInfo>(command::kGetInfo, std::move(callback),
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
    enqueueRecord<MonitorData>(command::kGetMonitorData, std::move(callback), decodeMonitorData);
}

void ZelmorRequest::requestGetStatistics(RecordCallback<MonitorStatistics> callback) {
    enqueueRecord<MonitorStatistics>(command::kGetStatistics, std::move(callback), decodeMonitorStatistics);
}

void ZelmorRequest::requestGetFgStatistics(RecordCallback<FuelgaugeStatistics> callback) {
    enqueueRecord<FuelgaugeStatistics>(command::kGetFgStatistics, std::move(callback), decodeFuelgaugeStatistics);
}

void ZelmorRequest::requestClearUserPasswordLock(DoneCallback callback) {
    enqueueDone(command::kClearUserPasswordLock, {}, std::move(callback));
}

void ZelmorRequest::requestClearMasterPasswordLock(DoneCallback callback) {
    enqueueDone(command::kClearMasterPasswordLock, {}, std::move(callback));
}

void ZelmorRequest::requestGetAuthKey(RecordCallback<AuthKey> callback) {
    enqueue(command::kGetAuthKey, {}, kDefaultTimeoutMs,
            [callback = std::move(callback)](ResponseCode code, uint8_t const* data, size_t length) {
                if (refusedWithPayload(code, length, callback)) return;
                AuthKey key{};
                code = decodeAuthKey(data, length, key);
                callback(code, key);
            });
}

void ZelmorRequest::requestResetAuthKey(DoneCallback callback) { enqueueDone(command::kResetAuthKey, {}, std::move(callback)); }

void ZelmorRequest::requestResetEnergyMeter(DoneCallback callback) {
    enqueueDone(command::kResetEnergyMeter, {}, std::move(callback));
}

void ZelmorRequest::requestResetCoulombMeter(DoneCallback callback) {
    enqueueDone(command::kResetCoulombMeter, {}, std::move(callback));
}

void ZelmorRequest::requestResetStatistics(DoneCallback callback) {
    enqueueDone(command::kResetStatistics, {}, std::move(callback));
}

void ZelmorRequest::requestSetPowerState(bool on, DoneCallback callback) {
    enqueueDone(command::kSetPowerState, {static_cast<uint8_t>(on ? 1 : 0)}, std::move(callback));
}

void ZelmorRequest::requestGetConfig(RecordCallback<ZelmorConfig> callback) {
    enqueueRecord<ZelmorConfig>(command::kGetConfig, std::move(callback), decodeConfig);
}

void ZelmorRequest::requestSetConfig(ZelmorConfig const& config, DoneCallback callback) {
    enqueueDone(command::kSetConfig, {config.image().begin(), config.image().end()}, std::move(callback));
}

void ZelmorRequest::requestResetConfig(DoneCallback callback) { enqueueDone(command::kResetConfig, {}, std::move(callback)); }

void ZelmorRequest::requestRename(std::string const& name, DoneCallback callback) {
    std::vector<uint8_t> payload(name.begin(), name.begin() + static_cast<long>(std::min(name.size(), kMaxNameLength)));
    enqueueDone(command::kRename, std::move(payload), std::move(callback));
}

void ZelmorRequest::requestSetTime(uint32_t time, DoneCallback callback) {
    enqueueDone(command::kSetTime, le(time), std::move(callback));
}

void ZelmorRequest::requestFgSynchronize(DoneCallback callback) {
    enqueueDone(command::kFgSynchronize, {}, std::move(callback));
}

void ZelmorRequest::requestStartWifiScan(DoneCallback callback) {
    enqueueDone(command::kStartWifiScan, {}, std::move(callback));
}

void ZelmorRequest::requestWifiConfigure(WifiNetwork const& network, DoneCallback callback) {
    enqueueDone(command::kWifiConfigure, encodeWifiNetwork(network), std::move(callback));
}

void ZelmorRequest::requestGetWifiNetworks(RecordCallback<std::vector<WifiNetwork>> callback) {
    enqueue(command::kGetWifiNetworks, {}, kDefaultTimeoutMs,
            [callback = std::move(callback)](ResponseCode code, uint8_t const* data, size_t length) {
                if (refusedWithPayload(code, length, callback)) return;
                std::vector<WifiNetwork> networks;
                decodeWifiNetworkList(data, length, networks);
                callback(code, networks);
            });
}

void ZelmorRequest::requestAddWifiNetwork(WifiNetwork const& network, DoneCallback callback) {
    enqueueDone(command::kAddWifiNetwork, encodeWifiNetwork(network), std::move(callback));
}

void ZelmorRequest::requestRemoveWifiNetwork(uint8_t index, DoneCallback callback) {
    enqueueDone(command::kRemoveWifiNetwork, {index}, std::move(callback));
}

void ZelmorRequest::requestGetAccessKeys(RecordCallback<WifiAccessKey> callback) {
    enqueue(command::kGetAccessKeys, {}, kDefaultTimeoutMs,
            [callback = std::move(callback)](ResponseCode code, uint8_t const* data, size_t length) {
                if (refusedWithPayload(code, length, callback)) return;
                WifiAccessKey key{};
                code = decodeAccessKey(data, length, key);
                callback(code, key);
            });
}

void ZelmorRequest::requestResetAccessKeys(DoneCallback callback) {
    enqueueDone(command::kResetAccessKeys, {}, std::move(callback));
}

void ZelmorRequest::requestZeroCurrentOffset(DoneCallback callback) {
    enqueueDone(command::kZeroCurrentOffset, {}, std::move(callback));
}

void ZelmorRequest::requestCalibrateCurrent(float current, DoneCallback callback) {
    enqueueDone(command::kCalibrateCurrent, le(current), std::move(callback));
}

void ZelmorRequest::requestGetSchedules(RecordCallback<std::vector<ZelmorSchedule>> callback) {
    enqueue(command::kGetSchedules, {}, kDefaultTimeoutMs,
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
    enqueueDone(command::kAddSchedules, std::move(payload), std::move(callback));
}

void ZelmorRequest::requestUpdateSchedule(uint64_t index, ZelmorSchedule const& schedule, DoneCallback callback) {
    std::vector<uint8_t> payload = le(scheduleIndex(index));
    payload.insert(payload.end(), schedule.bytes().begin(), schedule.bytes().end());
    enqueueDone(command::kUpdateSchedule, std::move(payload), std::move(callback));
}

void ZelmorRequest::requestDeleteSchedule(uint64_t index, DoneCallback callback) {
    enqueueDone(command::kDeleteSchedule, le(scheduleIndex(index)), std::move(callback));
}

void ZelmorRequest::requestClearSchedules(DoneCallback callback) {
    enqueueDone(command::kClearSchedules, {}, std::move(callback));
}

void ZelmorRequest::requestCommitSchedules(DoneCallback callback) {
    enqueueDone(command::kCommitSchedules, {}, std::move(callback));
}

void ZelmorRequest::requestClearLog(DoneCallback callback) { enqueueDone(command::kClearLog, {}, std::move(callback)); }

void ZelmorRequest::requestEraseDebug(DoneCallback callback) { enqueueDone(command::kEraseDebug, {}, std::move(callback)); }

void ZelmorRequest::requestReboot(DoneCallback callback) { enqueueDone(command::kReboot, {}, std::move(callback)); }
