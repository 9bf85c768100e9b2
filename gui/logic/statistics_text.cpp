#include "statistics_text.h"

#include <cmath>

#include <fmt/printf.h>

namespace {

constexpr uint32_t kSecondsPerDay = 86400;
constexpr uint32_t kSecondsPerHour = 3600;
constexpr uint32_t kSecondsPerMinute = 60;
constexpr uint64_t kMilliPerKilo = 1'000'000;

std::string voltsText(float volts) { return fmt::sprintf("%6.3f V", volts); }

std::string amperesText(float amperes) { return fmt::sprintf("%6.2f A", amperes); }

// Whole degrees, as the live panel shows them: a reading just below zero that
// rounds to "-0" looks like a sign error and shows as 0.
std::string degreesText(float celsius) {
    return fmt::sprintf("%3.0f °C", std::nearbyint(celsius) == 0 ? 0.0f : celsius);
}

}  // namespace

std::string durationText(uint32_t seconds) {
    uint32_t const days = seconds / kSecondsPerDay;
    uint32_t const hours = seconds % kSecondsPerDay / kSecondsPerHour;
    uint32_t const minutes = seconds % kSecondsPerHour / kSecondsPerMinute;
    uint32_t const rest = seconds % kSecondsPerMinute;
    if (seconds >= kSecondsPerDay) return fmt::sprintf("%ud %uh %um", days, hours, minutes);
    if (seconds < kSecondsPerHour) return fmt::sprintf("%um %us", minutes, rest);
    return fmt::sprintf("%uh %um %us", hours, minutes, rest);
}

std::string sinceFullChargeLine(uint32_t seconds) {
    return "Time since last full charge: " +
           (seconds == Zelmor::FuelgaugeStatistics::kTimeUnknown ? std::string("unknown") : durationText(seconds));
}

std::string capacityTotalLine(std::string const& caption, uint64_t milliampereHours) {
    double const value = static_cast<double>(milliampereHours);
    return milliampereHours >= kMilliPerKilo ? fmt::sprintf("%s: %.2f kAh", caption, value / 1e6)
                                             : fmt::sprintf("%s: %.1f Ah", caption, value / 1e3);
}

std::string energyTotalLine(std::string const& caption, uint64_t milliwattHours) {
    double const value = static_cast<double>(milliwattHours);
    return milliwattHours >= kMilliPerKilo ? fmt::sprintf("%s: %.2f kWh", caption, value / 1e6)
                                           : fmt::sprintf("%s: %.0f Wh", caption, value / 1e3);
}

std::vector<StatisticsRow> statisticsRows(Zelmor::MonitorStatistics const& s) {
    std::vector<StatisticsRow> rows = {
        {kStatisticsLabels[0], durationText(s.timeSincePowerOn)},
        {kStatisticsLabels[1], voltsText(s.minVoltage1)},
        {kStatisticsLabels[2], voltsText(s.maxVoltage1)},
    };
    if (!std::isnan(s.minVoltage2)) rows.push_back({kStatisticsLabels[3], voltsText(s.minVoltage2)});
    if (!std::isnan(s.maxVoltage2)) rows.push_back({kStatisticsLabels[4], voltsText(s.maxVoltage2)});
    rows.push_back({kStatisticsLabels[5], amperesText(s.peakDischargeCurrent)});
    rows.push_back({kStatisticsLabels[6], amperesText(s.peakChargeCurrent)});
    rows.push_back({kStatisticsLabels[7], degreesText(s.minTemperature)});
    rows.push_back({kStatisticsLabels[8], degreesText(s.maxTemperature)});
    return rows;
}

std::vector<std::string> fuelGaugeLines(Zelmor::FuelgaugeStatistics const& s) {
    return {
        sinceFullChargeLine(s.timeSinceFullCharge),
        fmt::sprintf("Full charge capacity: %5.0f Ah", s.fullChargeCapacity),
        capacityTotalLine("Total discharged capacity", s.totalDischargedCapacity),
        energyTotalLine("Total discharged energy", s.totalDischargedEnergy),
        capacityTotalLine("Total charged capacity", s.totalChargedCapacity),
        energyTotalLine("Total charged energy", s.totalChargedEnergy),
        fmt::sprintf("Minimum battery voltage: %.3f V", s.minBatteryVoltage),
        fmt::sprintf("Maximum battery voltage: %.3f V", s.maxBatteryVoltage),
        fmt::sprintf("Maximum discharge current: %.2f A", s.maxDischargeCurrent),
        fmt::sprintf("Maximum charge current: %.2f A", s.maxChargeCurrent),
        fmt::sprintf("Last discharge depth: %.1f Ah", s.lastDischargeDepth),
        fmt::sprintf("Deepest discharge: %.1f Ah", s.deepestDischarge),
        fmt::sprintf("Number of full discharge cycles: %u", s.fullDischargeCycles),
    };
}
