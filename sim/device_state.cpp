#include "device_state.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

#include "auth_key.h"
#include "factory_config.h"
#include "hardware_revision.h"
#include "logging_mode.h"

namespace sim {

namespace {

constexpr int64_t kSecondsPerDay = 86400;
// Integration step by distance from the clock: long gaps (a pre-filled history)
// are covered in coarse steps, the last hour second by second.
struct StepTier {
    int64_t beyond;
    int64_t step;
};
constexpr StepTier kStepTiers[] = {{86400, 60}, {3600, 10}};

int64_t stepFor(int64_t gap) {
    for (StepTier const& tier : kStepTiers)
        if (gap > tier.beyond) return tier.step;
    return 1;
}

constexpr double kFullCharge = 0.998;
// Below this the current counts as noise: neither charging nor discharging.
constexpr double kIdleCurrent = 0.1;
constexpr size_t kNetworkNameLength = 32;
constexpr size_t kBluetoothNameLength = 8;

int64_t systemClock() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

DeviceClock clockOf(SimulatedDeviceConfig const& config) {
    return config.clock ? config.clock : DeviceClock(systemClock);
}

int64_t historyStart(DeviceClock const& clock, uint32_t historyDays) {
    return clock() - static_cast<int64_t>(historyDays) * kSecondsPerDay;
}

int64_t nextGridPoint(int64_t after, int64_t interval) {
    int64_t const q = after / interval - (after % interval < 0 ? 1 : 0);
    return (q + 1) * interval;
}

// When the next record is due after `after`: records lie on the grid of the
// configured interval, so a changed interval takes over at its next grid point.
int64_t nextLogAfter(ConfigImage const& config, int64_t after) {
    std::optional<uint32_t> const interval = loggingIntervalSeconds(ZelmorConfig(config).dataLoggingMode());
    return interval ? nextGridPoint(after, *interval) : std::numeric_limits<int64_t>::max();
}

// The factory image, with the logging mode nearest the interval the device
// was made with, so that a fleet's --interval still sets how often it logs.
ConfigImage powerOnConfig(SimulatedDeviceConfig const& c) {
    ZelmorConfig config = factoryConfig(c.hardwareRevision);
    config.dataLoggingMode(nearestLoggingMode(c.logIntervalSeconds));
    return config.image();
}

constexpr int64_t kMillisecondsPerSecond = 1000;

std::optional<AuthKey> keyOf(std::string const& password) {
    if (password.empty()) return std::nullopt;
    return makeAuthKey(password);
}

}  // namespace

std::string versionText(uint16_t version) {
    char text[8];
    std::snprintf(text, sizeof text, "%x.%02x", version >> 8, version & 0xFF);
    return text;
}

DeviceState::DeviceState(SimulatedDeviceConfig const& c)
    : hardwareRevision(c.hardwareRevision),
      firmwareVersion(c.firmwareVersion),
      serial(c.serial),
      ipAddress(c.ipAddress),
      bluetoothAddress(c.bluetoothAddress),
      heldReading(c.heldReading),
      userKey(keyOf(c.userPassword)),
      masterKey(keyOf(c.masterPassword)),
      config(powerOnConfig(c)),
      protection(configuration(), configuration().relayOnAtStartup()),
      localClock(configuration().timeZone()),
      clock(clockOf(c)),
      rng(c.seed),
      wifi(c.wifiKind, c.seed, isWifiFamily(c.hardwareRevision) ? c.wifiNetwork : std::string(), clock()),
      sensor{0.02 + 0.04 * std::uniform_real_distribution<double>(0, 1)(rng), 0.004},
      bootTime(historyStart(clock, c.historyDays)),
      nextLogTime(nextLogAfter(config, bootTime)),
      battery(BatteryModelConfig{c.chemistry, c.capacityAh, hasSecondVoltage(c.hardwareRevision), c.seed}, bootTime),
      statistics(c.capacityAh, battery.reading().stateOfCharge, measure()),
      log(c.hardwareRevision) {
    name = c.name.empty() ? factoryName() : c.name.substr(0, maxNameLength());
    renewAccessKey();
    note("power on, firmware " + versionText(firmwareVersion));
    catchUp();
}

void DeviceState::catchUp() {
    int64_t const target = now();
    // Each step holds the reading at its start; steps end on log sample times so
    // that every record is taken exactly on the interval grid.
    while (battery.time() < target) {
        int64_t const t = battery.time();
        int64_t const next = std::min({t + stepFor(target - t), nextLogTime, target});
        // The relay acts on what the device measures, before the step runs with it.
        MeasuredSample const measured = measure();
        protection.update(t * kMillisecondsPerSecond, {measured.voltage1, measured.voltage2, measured.current,
                                                       measured.temperature, statistics.stateOfCharge() * 100});
        bool const generator = protection.generatorControl();
        battery.switchOutputs(generator || protection.outputOn(), generator && protection.outputOn());
        MeasuredSample const sample = measure();
        statistics.observe(sample);
        statistics.integrate(sample, static_cast<double>(next - t));
        battery.advance(next - t);
        if (next == nextLogTime) {
            MonitorReadings const r = readings();
            auto const stamp = static_cast<uint32_t>(localClock.wallClockSeconds(r.time));
            log.append(LogRecord{stamp, r.voltage1, r.voltage2, r.current, r.power, r.temperature, r.stateOfCharge,
                                 static_cast<uint8_t>(r.powerStatus)});
            nextLogTime = nextLogAfter(config, nextLogTime);
        }
    }
    statistics.observe(measure());
    wifi.catchUp(target);
}

MeasuredSample DeviceState::measure() const {
    BatteryReading const r = battery.reading();
    double const current = r.current * (1 + sensor.gainError) + sensor.offsetError;
    return {r.voltage1, r.voltage2, current, r.voltage1 * current, r.temperature, r.stateOfCharge >= kFullCharge};
}

void DeviceState::configChanged() {
    protection.configure(configuration());
    localClock = ZoneClock(configuration().timeZone());
    nextLogTime = nextLogAfter(config, battery.time());
}

void DeviceState::restoreFactoryConfig() {
    config = factoryConfig(hardwareRevision).image();
    protection = ProtectionRules(configuration(), protection.switchedOn());
    localClock = ZoneClock(configuration().timeZone());
    nextLogTime = nextLogAfter(config, battery.time());
}

void DeviceState::restartRelay() {
    ZelmorConfig const settings = configuration();
    bool const on = settings.latchRelayOn() ? protection.switchedOn() : settings.relayOnAtStartup();
    protection = ProtectionRules(settings, on);
}

MonitorReadings DeviceState::readings() const {
    MeasuredSample const s = measure();
    MonitorReadings r;
    r.time = deviceTime();
    r.status = (protection.coilEnergised() ? kStatusRelayOn : 0) | (s.current > kIdleCurrent ? kStatusCharging : 0) |
               (hasSecondVoltage(hardwareRevision) ? kStatusSecondVoltage : 0);
    r.voltage1 = static_cast<float>(s.voltage1);
    r.voltage2 = static_cast<float>(s.voltage2);
    r.current = static_cast<float>(s.current);
    r.power = static_cast<float>(s.power);
    r.temperature = static_cast<float>(s.temperature);
    if (heldReading) {
        r.voltage1 = heldReading->voltage1;
        r.voltage2 = heldReading->voltage2;
        r.current = heldReading->current;
        r.power = heldReading->power;
        r.temperature = heldReading->temperature;
    }
    r.coulombMeter = statistics.coulombMeterMah();
    r.energyMeter = statistics.energyMeterMwh();
    r.powerStatus = protection.powerStatus();
    r.stateOfCharge = static_cast<uint8_t>(std::lround(statistics.stateOfCharge() * 100));
    r.runtime = kRuntimeNotAvailable;
    if (s.current < -kIdleCurrent) {
        double const minutes = statistics.remainingAh() / -s.current * 60;
        r.runtime = static_cast<uint16_t>(std::min(minutes, static_cast<double>(kRuntimeMax)));
    }
    std::optional<int8_t> const signal = wifi.signalInUse(battery.time());
    r.rssi = signal ? *signal : kRssiNotAvailable;
    return r;
}

void DeviceState::note(std::string_view event) { debug.note(deviceTime(), event); }

void DeviceState::renewAccessKey() {
    std::uniform_int_distribution<int> byte(0, 255);
    for (uint8_t& b : accessKey.keyId) b = static_cast<uint8_t>(byte(rng));
    for (uint8_t& b : accessKey.key) b = static_cast<uint8_t>(byte(rng));
}

std::string DeviceState::factoryName() const {
    return std::string(modelName(hardwareRevision)).substr(0, maxNameLength());
}

size_t DeviceState::maxNameLength() const {
    return isNetworkModel(hardwareRevision) ? kNetworkNameLength : kBluetoothNameLength;
}

}  // namespace sim
