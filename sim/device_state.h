#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "battery_model.h"
#include "debug_area.h"
#include "device_log.h"
#include "device_statistics.h"
#include "device_wifi.h"
#include "firmware_update.h"
#include "protection_rules.h"
#include "simulated_device_config.h"
#include "time_zone.h"
#include "zelmor.h"
#include "zelmor_config.h"

namespace sim {

using AuthKey = std::array<uint8_t, 32>;
inline constexpr size_t kScheduleRecordSize = 24;
using ScheduleRecord = std::array<uint8_t, kScheduleRecordSize>;
inline constexpr size_t kConfigImageSize = 104;
using ConfigImage = std::array<uint8_t, kConfigImageSize>;

/// A BCD firmware version as shown: 0x0132 is "1.32".
std::string versionText(uint16_t version);

/// Error of the current sensor that calibration removes.
struct SensorCalibration {
    double offsetError = 0;  // A
    double gainError = 0;    // relative
};

/// What the device shows at one moment, as it would send it (command 0x04).
struct MonitorReadings {
    uint32_t time = 0;
    uint32_t status = 0;
    float voltage1 = 0;
    float voltage2 = 0;
    float current = 0;
    float power = 0;
    float temperature = 0;
    int64_t coulombMeter = 0;  // mAh
    int64_t energyMeter = 0;   // mWh
    PowerStatus powerStatus = PowerStatus::Off;
    uint8_t stateOfCharge = 255;
    uint16_t runtime = 0;  // minutes
    int16_t rssi = 0;      // dBm
};

/// Status word bits of the monitor data.
/// Bit 0 is the relay coil (see ProtectionRules::coilEnergised).
inline constexpr uint32_t kStatusRelayOn = 1u << 0;
inline constexpr uint32_t kStatusCharging = 1u << 1;
inline constexpr uint32_t kStatusSecondVoltage = 1u << 2;
/// Runtime while charging or idle.
inline constexpr uint16_t kRuntimeNotAvailable = 65534;
inline constexpr uint16_t kRuntimeMax = 65520;
inline constexpr int16_t kRssiNotAvailable = -32768;

/// Everything one device knows and keeps. Not thread-safe: SimulatedDevice
/// guards it. Members are declared in construction order.
struct DeviceState {
    explicit DeviceState(SimulatedDeviceConfig const& config);

    uint8_t hardwareRevision;
    uint16_t firmwareVersion;
    uint64_t serial;
    std::string name;
    std::array<uint8_t, 4> ipAddress;
    std::array<uint8_t, 6> bluetoothAddress;
    std::optional<HeldReading> heldReading;

    std::optional<AuthKey> userKey;
    std::optional<AuthKey> masterKey;

    /// The factory image, logging at the interval the device was made with.
    ConfigImage config;
    /// The relay and the cut-offs, run by `config`.
    ProtectionRules protection;
    /// The wall clock of the configuration's zone, which the log's records
    /// are stamped with.
    ZoneClock localClock;
    /// The timers in force: what 0x50 reads and a commit replaces.
    std::vector<ScheduleRecord> schedules;
    uint32_t scheduleCommits = 0;
    int64_t timeOffset = 0;  // device time minus clock time

    DeviceClock clock;
    std::mt19937_64 rng;
    DeviceWifi wifi;
    Zelmor::WifiAccessKey accessKey;
    SensorCalibration sensor;
    int64_t bootTime;
    int64_t nextLogTime;  // the largest time while logging is disabled
    BatteryModel battery;
    DeviceStatistics statistics;
    DeviceLog log;
    FirmwareUpdate firmware;
    /// Raised by a firmware update the device took: SimulatedDevice then
    /// drops its links and stays away for the restart.
    bool restartPending = false;
    DebugArea debug;

    int64_t now() const { return clock(); }
    uint32_t deviceTime() const { return static_cast<uint32_t>(battery.time() + timeOffset); }
    /// Runs the battery, relay, meters, statistics, data log and WiFi up to the clock.
    void catchUp();
    ZelmorConfig configuration() const { return ZelmorConfig(config); }
    /// Puts a newly written `config` in force: the relay's rules start over
    /// and the log follows the new logging mode from now on.
    void configChanged();
    /// Restores the factory image and the relay's rules as they were at power-on,
    /// keeping the relay where the user switched it.
    void restoreFactoryConfig();
    /// The relay after a restart: where it was with a latching relay, else
    /// where the configuration wants it at startup.
    void restartRelay();
    MeasuredSample measure() const;
    MonitorReadings readings() const;
    /// Records an event in the debug area.
    void note(std::string_view event);
    void renewAccessKey();
    /// The model name, cut to what the model can show.
    std::string factoryName() const;
    size_t maxNameLength() const;
};

}  // namespace sim
