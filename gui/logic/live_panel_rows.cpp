#include "live_panel_rows.h"

#include <ctime>

#include <fmt/chrono.h>
#include <fmt/core.h>

#include "power_status.h"
#include "reading_text.h"
#include "time_zone.h"

namespace {

constexpr int16_t kRssiNotAvailable = -32768;
constexpr int64_t kMilliPerKilo = 1'000'000;

// The panel reads the meters in mWh and mAh as the device counts them. The
// charge keeps the unit "Ah" in both ranges.
std::string energyMeterText(int64_t milliwattHours) {
    bool const large = milliwattHours >= kMilliPerKilo || milliwattHours <= -kMilliPerKilo;
    return large ? fmt::format("{:.3f} kWh", static_cast<double>(milliwattHours) / 1e6)
                 : fmt::format("{:.2f} Wh", static_cast<double>(milliwattHours) / 1e3);
}

std::string coulombMeterText(int64_t milliampHours) {
    bool const large = milliampHours >= kMilliPerKilo || milliampHours <= -kMilliPerKilo;
    return fmt::format("{:.3f} Ah", static_cast<double>(milliampHours) / (large ? 1e6 : 1e3));
}

// A device whose clock was never set counts from 0.
std::string deviceClockText(uint32_t time, std::string_view timeZone) {
    if (time == 0) return "not set";
    auto const local = static_cast<std::time_t>(wallClockSeconds(time, timeZone));
    std::tm fields{};
    gmtime_r(&local, &fields);
    return fmt::format("{:%I:%M %p} {:%b %d, %Y}", fields, fields);
}

std::string rssiText(int16_t rssi) { return rssi == kRssiNotAvailable ? std::string() : fmt::format("{} dBm", rssi); }

}  // namespace

std::vector<PanelRow> livePanelRows(Zelmor::MonitorData const& data, bool rssiAvailable, std::string_view timeZone) {
    std::vector<PanelRow> rows;
    if (secondVoltageShown(data.status, data.voltage2)) {
        rows.push_back({"Voltage 1", voltageText(data.voltage1)});
        rows.push_back({"Voltage 2", voltageText(data.voltage2)});
    } else {
        rows.push_back({"Voltage", voltageText(data.voltage1)});
    }
    rows.push_back({"Current", currentText(data.current)});
    rows.push_back({"Power", powerText(data.power)});
    rows.push_back({"Energy Meter", energyMeterText(data.energyMeter)});
    rows.push_back({"Coulomb Meter", coulombMeterText(data.coulombMeter)});
    if (stateOfChargeAvailable(data.stateOfCharge))
        rows.push_back({"Battery SoC", stateOfChargeText(data.stateOfCharge)});
    if (runtimeAvailable(data.runtime)) rows.push_back({"Battery Runtime", runtimeText(data.runtime)});
    rows.push_back({"Temperature", temperatureText(data.temperature)});
    rows.push_back({"Power Status", powerStatusText(data.powerStatus)});
    rows.push_back({"Device Clock", deviceClockText(data.time, timeZone)});
    if (rssiAvailable) rows.push_back({"Device RSSI", rssiText(data.rssi)});
    return rows;
}
