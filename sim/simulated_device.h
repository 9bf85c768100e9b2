#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device_commands.h"
#include "device_session.h"
#include "device_state.h"
#include "fault_injection.h"
#include "simulated_device_config.h"
#include "zelmor.h"

namespace sim {

/// A summary of the device's state for tests and the demo.
struct DeviceSnapshot {
    std::string name;
    uint16_t firmwareVersion = 0;
    uint8_t hardwareRevision = 0;
    uint64_t serial = 0;
    bool relayOn = false;
    bool userPasswordSet = false;
    bool masterPasswordSet = false;
    WifiStatus wifiStatus = WifiStatus::NotConnected;
    std::string wifiNetwork;
    size_t wifiNetworkCount = 0;
    ConfigImage config{};
    std::vector<ScheduleRecord> schedules;  // the committed timers
    uint32_t scheduleCommits = 0;
    uint32_t deviceTime = 0;
    uint32_t secondsSincePowerOn = 0;
};

/// A battery monitor that lives in this process: the device side of the
/// protocol over any number of sessions, a battery that charges and discharges
/// with the clock, and a data log. Every public member is thread-safe.
class SimulatedDevice {
public:
    explicit SimulatedDevice(SimulatedDeviceConfig config);
    /// Waits for a restart that is dropping links.
    ~SimulatedDevice();
    SimulatedDevice(SimulatedDevice const&) = delete;
    SimulatedDevice& operator=(SimulatedDevice const&) = delete;

    /// A new connection; its answers go to `send`.
    std::unique_ptr<DeviceSession> openSession(SessionMode mode, SendFunction send);

    /// Brings the battery, meters, statistics and log up to the clock. Every
    /// command does this first; an idle device can be caught up with it.
    void advance();

    DeviceSnapshot snapshot();
    MonitorReadings readings();
    Zelmor::WifiAccessKey accessKey() const;
    FirmwareUpdateProgress firmwareUpdate() const;
    std::vector<LogFileEntry> logFiles();
    /// A copy of a log file's content; empty when there is no such file.
    std::vector<uint8_t> logFile(uint32_t id);
    std::string debugText() const;
    size_t logRecordSize() const;

    FaultInjector& faults() { return faults_; }

    /// How long the device is away while it restarts into a firmware it took.
    static constexpr std::chrono::milliseconds kRestartDuration{3000};
    /// How long after the answer that made it restart the device drops its
    /// links, as a real one takes a moment to reboot: the host has the answer
    /// in hand before its link ends.
    static constexpr std::chrono::milliseconds kLinkDropDelay{200};
    /// False while the device restarts: its servers turn connections away, the
    /// hub finds it not, and it sends no announcements.
    bool online() const;
    /// `dropLink` ends one network link, and tells whether the link was still
    /// open: when the device restarts, on a thread of the device's own,
    /// kLinkDropDelay after the answer that made it restart, and when
    /// cutLinks is called, on its caller's thread. The number given back ends
    /// the watch (unwatchLink); once that has returned, `dropLink` is not
    /// running and never runs again.
    uint64_t watchLink(std::function<bool()> dropLink);
    void unwatchLink(uint64_t watch);
    /// Ends every network link to the device now, as a hang-up does: the
    /// device stays online and takes new connections at once. Returns how
    /// many of them were still open.
    size_t cutLinks();

private:
    friend class DeviceSession;

    CommandResult execute(SessionState& session, uint16_t code, uint8_t const* payload, size_t length);

    size_t const maxFramePayload_;
    mutable std::mutex mutex_;
    DeviceState state_;
    FaultInjector faults_;
    std::chrono::steady_clock::time_point offlineUntil_;  // guarded by mutex_

    void dropLinks();

    mutable std::mutex watchMutex_;  // guards the four below; taken after mutex_
    std::condition_variable watchWake_;
    std::map<uint64_t, std::function<bool()>> linkWatches_;
    uint64_t nextWatch_ = 0;
    bool destroying_ = false;
    std::thread linkDropper_;  // started and joined under mutex_
};

}  // namespace sim
