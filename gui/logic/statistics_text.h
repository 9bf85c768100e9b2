#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "zelmor.h"

// What the two statistics dialogs show: the power meter's extremes since power
// on (GuiStats) and the fuel gauge's history (GuiFgStats).

/// One row of the power meter statistics: its label and the value beside it.
struct StatisticsRow {
    std::string label;
    std::string value;
    bool operator==(StatisticsRow const&) const = default;
};

/// Every label the power meter statistics can show, top to bottom.
inline constexpr std::array<char const*, 9> kStatisticsLabels = {
    "Time Since Powered On:", "Minimum Voltage 1:",   "Maximum Voltage 1:",
    "Minimum Voltage 2:",     "Maximum Voltage 2:",   "Peak Discharge Current:",
    "Peak Charge Current:",   "Minimum Temperature:", "Maximum Temperature:",
};

/// A count of seconds: "1d 0h 0m" from a day on, "1h 0m 0s" from an hour on,
/// else "59m 59s".
std::string durationText(uint32_t seconds);

/// "Time since last full charge: 59m 59s", or "... unknown" before the first
/// full charge (FuelgaugeStatistics::kTimeUnknown).
std::string sinceFullChargeLine(uint32_t seconds);

/// `caption` and a total charge: "Total charged capacity: 1000.0 Ah", and from
/// 1 000 000 mAh "Total charged capacity: 1.00 kAh".
std::string capacityTotalLine(std::string const& caption, uint64_t milliampereHours);

/// `caption` and a total energy: "Total charged energy: 1000 Wh", and from
/// 1 000 000 mWh "Total charged energy: 1.00 kWh".
std::string energyTotalLine(std::string const& caption, uint64_t milliwattHours);

/// The rows for one record, in the order of kStatisticsLabels. A device
/// without a second voltage input sends NaN for its extremes: a Voltage 2 row
/// whose value is not a number is left out.
std::vector<StatisticsRow> statisticsRows(Zelmor::MonitorStatistics const& statistics);

/// The fuel gauge's lines, top to bottom, each with its caption.
std::vector<std::string> fuelGaugeLines(Zelmor::FuelgaugeStatistics const& statistics);
