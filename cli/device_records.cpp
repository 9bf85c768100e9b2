#include "device_records.h"

#include <cmath>
#include <ctime>

#include <fmt/chrono.h>
#include <fmt/core.h>

#include "bluetooth_address.h"
#include "float_json.h"
#include "hardware_revision.h"
#include "lock_status.h"
#include "power_status.h"

namespace {

constexpr uint8_t kSocNotAvailable = 255;
constexpr uint16_t kRuntimeNotAvailable = 65521;  // and every value above
constexpr int16_t kRssiNotAvailable = -32768;

char const* wifiStatusText(uint8_t status) {
    switch (status) {
        case 0:
            return "not connected";
        case 1:
            return "connecting";
        case 2:
            return "connected";
        case 3:
            return "failed";
        default:
            return "unknown";
    }
}

Json socJson(uint8_t soc) { return soc == kSocNotAvailable ? Json() : Json(soc); }
Json runtimeJson(uint16_t minutes) { return minutes >= kRuntimeNotAvailable ? Json() : Json(minutes); }
Json rssiJson(int16_t rssi) { return rssi == kRssiNotAvailable ? Json() : Json(rssi); }
Json ipJson(uint32_t ip) { return ip == 0 ? Json() : Json(ipText(ip)); }

/// A measurement with its unit, or "-" when the device does not have it.
std::string measured(float value, int decimals, char const* unit) {
    return std::isnan(value) ? "-" : fmt::format("{:.{}f} {}", value, decimals, unit);
}

std::string socText(uint8_t soc) {
    if (soc == kSocNotAvailable) return "-";
    return soc > 100 ? "unknown" : fmt::format("{} %", soc);
}

std::string runtimeText(uint16_t minutes) {
    return minutes >= kRuntimeNotAvailable ? "-" : fmt::format("{} min", minutes);
}

std::string durationText(uint32_t seconds) {
    return fmt::format("{}d {:02}:{:02}:{:02}", seconds / 86400, seconds / 3600 % 24, seconds / 60 % 60, seconds % 60);
}

}  // namespace

std::string localTimeText(uint32_t seconds) {
    std::time_t const time = seconds;
    std::tm local{};
    localtime_r(&time, &local);
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", local);
}

Json infoJson(Zelmor::DeviceInfo const& info) {
    Json json{{"name", info.name},
              {"serial", serialText(info.serial)},
              {"model", modelName(info.hardwareRevision)},
              {"hardware_revision", info.hardwareRevision},
              {"firmware", firmwareText(info.firmwareVersion)},
              {"locked", deviceLocked(info)},
              {"master_password_set", masterPasswordSet(info)},
              {"ip", ipJson(info.ipAddress)}};
    bool const wifi = isWifiFamily(info.hardwareRevision);
    json["wifi_network"] = wifi ? Json(info.wifiNetwork) : Json();
    json["wifi_status"] = wifi ? Json(wifiStatusText(info.wifiStatus)) : Json();
    json["lock_status"] = info.lockStatus;
    json["extra_status"] = info.extraStatus;
    return json;
}

std::vector<std::string> infoText(Zelmor::DeviceInfo const& info) {
    std::vector<std::string> lines{
        fmt::format("Name:      {}", info.name),
        fmt::format("Model:     {} ({})", modelName(info.hardwareRevision), revisionText(info.hardwareRevision)),
        fmt::format("Serial:    {}", serialText(info.serial)),
        fmt::format("Firmware:  {}", firmwareText(info.firmwareVersion)),
        fmt::format("IP:        {}", info.ipAddress ? ipText(info.ipAddress) : "-")};
    if (isWifiFamily(info.hardwareRevision))
        lines.push_back(fmt::format("WiFi:      {} ({})", info.wifiNetwork.empty() ? "-" : info.wifiNetwork,
                                    wifiStatusText(info.wifiStatus)));
    lines.push_back(fmt::format("Locked:    {}", deviceLocked(info) ? "yes (user password)" : "no"));
    lines.push_back(fmt::format("Master:    {}", masterPasswordSet(info) ? "password set" : "no password"));
    return lines;
}

Json monitorJson(Zelmor::MonitorData const& data) {
    return Json{{"time", data.time},
                {"voltage1", floatJson(data.voltage1)},
                {"voltage2", floatJson(data.voltage2)},
                {"current", floatJson(data.current)},
                {"power", floatJson(data.power)},
                {"temperature", floatJson(data.temperature)},
                {"soc", socJson(data.stateOfCharge)},
                {"runtime_minutes", runtimeJson(data.runtime)},
                {"power_status", powerStatusText(data.powerStatus)},
                {"coulomb_mAh", data.coulombMeter},
                {"energy_mWh", data.energyMeter},
                {"rssi", rssiJson(data.rssi)},
                {"status", data.status}};
}

std::string monitorText(Zelmor::MonitorData const& data) {
    return fmt::format("{}  V1 {}  V2 {}  I {}  P {}  T {}  SoC {}  runtime {}  {}", localTimeText(data.time),
                       measured(data.voltage1, 3, "V"), measured(data.voltage2, 3, "V"), measured(data.current, 3, "A"),
                       measured(data.power, 2, "W"), measured(data.temperature, 2, "°C"), socText(data.stateOfCharge),
                       runtimeText(data.runtime), powerStatusText(data.powerStatus));
}

Json statisticsJson(Zelmor::MonitorStatistics const& s) {
    return Json{{"seconds_since_power_on", s.timeSincePowerOn},
                {"min_voltage1", floatJson(s.minVoltage1)},
                {"max_voltage1", floatJson(s.maxVoltage1)},
                {"min_voltage2", floatJson(s.minVoltage2)},
                {"max_voltage2", floatJson(s.maxVoltage2)},
                {"peak_discharge_current", floatJson(s.peakDischargeCurrent)},
                {"peak_charge_current", floatJson(s.peakChargeCurrent)},
                {"min_temperature", floatJson(s.minTemperature)},
                {"max_temperature", floatJson(s.maxTemperature)}};
}

std::vector<std::string> statisticsText(Zelmor::MonitorStatistics const& s) {
    return {fmt::format("Since power on:         {}", durationText(s.timeSincePowerOn)),
            fmt::format("Voltage 1:              {} .. {}", measured(s.minVoltage1, 3, "V"),
                        measured(s.maxVoltage1, 3, "V")),
            fmt::format("Voltage 2:              {} .. {}", measured(s.minVoltage2, 3, "V"),
                        measured(s.maxVoltage2, 3, "V")),
            fmt::format("Peak discharge current: {}", measured(s.peakDischargeCurrent, 3, "A")),
            fmt::format("Peak charge current:    {}", measured(s.peakChargeCurrent, 3, "A")),
            fmt::format("Temperature:            {} .. {}", measured(s.minTemperature, 2, "°C"),
                        measured(s.maxTemperature, 2, "°C"))};
}

Json fuelgaugeJson(Zelmor::FuelgaugeStatistics const& s) {
    bool const known = s.timeSinceFullCharge != Zelmor::FuelgaugeStatistics::kTimeUnknown;
    return Json{{"seconds_since_full_charge", known ? Json(s.timeSinceFullCharge) : Json()},
                {"full_charge_capacity_Ah", floatJson(s.fullChargeCapacity)},
                {"total_discharged_mAh", s.totalDischargedCapacity},
                {"total_discharged_mWh", s.totalDischargedEnergy},
                {"total_charged_mAh", s.totalChargedCapacity},
                {"total_charged_mWh", s.totalChargedEnergy},
                {"min_battery_voltage", floatJson(s.minBatteryVoltage)},
                {"max_battery_voltage", floatJson(s.maxBatteryVoltage)},
                {"max_discharge_current", floatJson(s.maxDischargeCurrent)},
                {"max_charge_current", floatJson(s.maxChargeCurrent)},
                {"last_discharge_depth_Ah", floatJson(s.lastDischargeDepth)},
                {"deepest_discharge_Ah", floatJson(s.deepestDischarge)},
                {"full_discharge_cycles", s.fullDischargeCycles}};
}

std::vector<std::string> fuelgaugeText(Zelmor::FuelgaugeStatistics const& s) {
    bool const known = s.timeSinceFullCharge != Zelmor::FuelgaugeStatistics::kTimeUnknown;
    return {fmt::format("Since full charge:      {}", known ? durationText(s.timeSinceFullCharge) : "-"),
            fmt::format("Full charge capacity:   {}", measured(s.fullChargeCapacity, 3, "Ah")),
            fmt::format("Discharged in total:    {} mAh, {} mWh", s.totalDischargedCapacity, s.totalDischargedEnergy),
            fmt::format("Charged in total:       {} mAh, {} mWh", s.totalChargedCapacity, s.totalChargedEnergy),
            fmt::format("Battery voltage:        {} .. {}", measured(s.minBatteryVoltage, 3, "V"),
                        measured(s.maxBatteryVoltage, 3, "V")),
            fmt::format("Largest discharge:      {}", measured(s.maxDischargeCurrent, 3, "A")),
            fmt::format("Largest charge:         {}", measured(s.maxChargeCurrent, 3, "A")),
            fmt::format("Last discharge depth:   {}", measured(s.lastDischargeDepth, 3, "Ah")),
            fmt::format("Deepest discharge:      {}", measured(s.deepestDischarge, 3, "Ah")),
            fmt::format("Full discharge cycles:  {}", s.fullDischargeCycles)};
}

namespace {

// The address a Bluetooth LE sighting can be reached at; null for LAN sightings.
Json bluetoothJson(ZelmorScanner::Advertisement const& a) {
    if (a.source != ZelmorScanner::Advertisement::Source::Bluetooth) return nullptr;
    return formatBluetoothAddress(a.bluetoothAddress);
}

}  // namespace

Json advertisementJson(ZelmorScanner::Advertisement const& a) {
    return Json{{"serial", serialText(a.serial)},
                {"name", a.name},
                {"model", modelName(a.hardwareRevision)},
                {"hardware_revision", a.hardwareRevision},
                {"firmware", firmwareText(a.firmwareVersion)},
                {"ip", ipJson(a.ipAddress)},
                {"bluetooth_address", bluetoothJson(a)},
                {"time", a.time},
                {"voltage1", floatJson(a.voltage1)},
                {"voltage2", floatJson(a.voltage2)},
                {"current", floatJson(a.current)},
                {"power", floatJson(a.power)},
                {"temperature", floatJson(a.temperature)},
                {"soc", socJson(a.stateOfCharge)},
                {"runtime_minutes", runtimeJson(a.runtime)},
                {"power_status", powerStatusText(a.powerStatus)},
                {"coulomb_mAh", a.coulombMeter},
                {"energy_Wh", floatJson(a.energyWh)},
                {"rssi", rssiJson(a.rssi)},
                {"status", a.status}};
}

std::string advertisementText(ZelmorScanner::Advertisement const& a) {
    std::string const where = a.source == ZelmorScanner::Advertisement::Source::Bluetooth
                                  ? formatBluetoothAddress(a.bluetoothAddress)
                                  : (a.ipAddress ? ipText(a.ipAddress) : "-");
    return fmt::format("{}  {:<17}  {:<9} {}  fw {}  \"{}\"  {}  {}  SoC {}", serialText(a.serial), where,
                       modelName(a.hardwareRevision), revisionText(a.hardwareRevision), firmwareText(a.firmwareVersion),
                       a.name, measured(a.voltage1, 3, "V"), measured(a.current, 3, "A"), socText(a.stateOfCharge));
}
