#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <vector>

#include "log_record.h"

/// The first line of a CSV export.
inline constexpr char const* kLogCsvHeader =
    "Time (dd/mm/yyyy hh:mm:ss), Voltage 1 (V), Voltage 2 (V), Current (A), Power (W), Temperature (°C), SOC (%), "
    "Power Status\n";

/// Told the rows written so far and the rows of the whole export; false cancels it.
using LogCsvProgress = std::function<bool(uint64_t rowsDone, uint64_t rowsTotal)>;

enum class LogCsvResult { written, cancelled, writeFailed };

/// Writes the header, then one row per record from the first whose time is not
/// before `from`, and stops after the first row whose time is at or after
/// `to`: that record is still written, so the end is inclusive and may lie up
/// to one sampling interval past `to`. `records` are expected in time order.
/// `progress`, when set, is called every few thousand rows and at the end.
///
/// A row is "time,voltage 1,voltage 2,current,power,temperature,SOC,status":
/// the time as dd/mm/yyyy hh:mm:ss of the stamp as it is (the device's wall
/// clock, no time zone applied), volts and amperes with three decimals, watts
/// and degrees with two, an empty second voltage on models without one, the
/// state of charge as a whole percentage (empty when not available, "unknown"
/// above 100), and the power status as its short name. The text is the one
/// printf's "%.3f"/"%.2f" give, byte for byte.
LogCsvResult writeLogCsv(std::FILE* out, std::vector<LogRecord> const& records, int64_t from = 0,
                         int64_t to = std::numeric_limits<int64_t>::max(), LogCsvProgress const& progress = {});
