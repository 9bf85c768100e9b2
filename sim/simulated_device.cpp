#include "simulated_device.h"

#include <utility>

namespace sim {

namespace {

// The fault generator must not follow the device's own random sequence, or
// turning faults on would change what the device does.
constexpr uint64_t kFaultSeedSalt = 0x6661756C74730000ULL;

}  // namespace

SimulatedDevice::SimulatedDevice(SimulatedDeviceConfig config)
    : maxFramePayload_(config.maxFramePayload), state_(config), faults_(config.seed ^ kFaultSeedSalt) {}

SimulatedDevice::~SimulatedDevice() {
    {
        std::lock_guard lock(watchMutex_);
        destroying_ = true;
    }
    watchWake_.notify_all();
    if (linkDropper_.joinable()) linkDropper_.join();
}

std::unique_ptr<DeviceSession> SimulatedDevice::openSession(SessionMode mode, SendFunction send) {
    return std::make_unique<DeviceSession>(*this, mode, std::move(send), maxFramePayload_);
}

void SimulatedDevice::advance() {
    std::lock_guard lock(mutex_);
    state_.catchUp();
}

DeviceSnapshot SimulatedDevice::snapshot() {
    std::lock_guard lock(mutex_);
    state_.catchUp();
    DeviceState const& d = state_;
    DeviceSnapshot s;
    s.name = d.name;
    s.firmwareVersion = d.firmwareVersion;
    s.hardwareRevision = d.hardwareRevision;
    s.serial = d.serial;
    s.relayOn = d.protection.outputOn();
    s.userPasswordSet = d.userKey.has_value();
    s.masterPasswordSet = d.masterKey.has_value();
    s.wifiStatus = d.wifi.status();
    s.wifiNetwork = d.wifi.network();
    s.wifiNetworkCount = d.wifi.stored().size();
    s.config = d.config;
    s.schedules = d.schedules;
    s.scheduleCommits = d.scheduleCommits;
    s.deviceTime = d.deviceTime();
    s.secondsSincePowerOn = static_cast<uint32_t>(d.battery.time() - d.bootTime);
    return s;
}

MonitorReadings SimulatedDevice::readings() {
    std::lock_guard lock(mutex_);
    state_.catchUp();
    return state_.readings();
}

Zelmor::WifiAccessKey SimulatedDevice::accessKey() const {
    std::lock_guard lock(mutex_);
    return state_.accessKey;
}

FirmwareUpdateProgress SimulatedDevice::firmwareUpdate() const {
    std::lock_guard lock(mutex_);
    return state_.firmware.progress();
}

std::vector<LogFileEntry> SimulatedDevice::logFiles() {
    std::lock_guard lock(mutex_);
    state_.catchUp();
    return state_.log.list();
}

std::vector<uint8_t> SimulatedDevice::logFile(uint32_t id) {
    std::lock_guard lock(mutex_);
    state_.catchUp();
    std::vector<uint8_t> const* file = state_.log.file(id);
    return file != nullptr ? *file : std::vector<uint8_t>{};
}

std::string SimulatedDevice::debugText() const {
    std::lock_guard lock(mutex_);
    return state_.debug.text();
}

size_t SimulatedDevice::logRecordSize() const {
    std::lock_guard lock(mutex_);
    return state_.log.recordSize();
}

CommandResult SimulatedDevice::execute(SessionState& session, uint16_t code, uint8_t const* payload, size_t length) {
    std::lock_guard lock(mutex_);
    state_.catchUp();
    CommandResult result = executeCommand(state_, session, code, payload, length);
    if (state_.restartPending) {
        state_.restartPending = false;
        offlineUntil_ = std::chrono::steady_clock::now() + kRestartDuration;
        // An earlier restart's dropper ended long ago, at most kLinkDropDelay after it began.
        if (linkDropper_.joinable()) linkDropper_.join();
        linkDropper_ = std::thread([this] { dropLinks(); });
    }
    return result;
}

void SimulatedDevice::dropLinks() {
    std::unique_lock lock(watchMutex_);
    if (watchWake_.wait_for(lock, kLinkDropDelay, [this] { return destroying_; })) return;
    for (auto const& watch : linkWatches_) watch.second();
}

size_t SimulatedDevice::cutLinks() {
    std::lock_guard lock(watchMutex_);
    size_t open = 0;
    for (auto const& watch : linkWatches_) open += watch.second() ? 1 : 0;
    return open;
}

bool SimulatedDevice::online() const {
    std::lock_guard lock(mutex_);
    return std::chrono::steady_clock::now() >= offlineUntil_;
}

uint64_t SimulatedDevice::watchLink(std::function<bool()> dropLink) {
    std::lock_guard lock(watchMutex_);
    linkWatches_.emplace(nextWatch_, std::move(dropLink));
    return nextWatch_++;
}

void SimulatedDevice::unwatchLink(uint64_t watch) {
    std::lock_guard lock(watchMutex_);
    linkWatches_.erase(watch);
}

}  // namespace sim
