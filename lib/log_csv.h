#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "log_record.h"

/// The first line of a CSV export.
inline constexpr char const* kLogCsvHeader =
    "Time (dd/mm/yyyy hh:mm:ss), Voltage 1 (V), Voltage 2 (V), Current (A), Power (W), Temperature (°C), SOC (%), "
    "Power Status\n";

/// Writes the header, then one row per record from the first whose time is not
/// before `from`, and stops after the first row whose time is at or after
/// `to`: that record is still written, so the end is inclusive and may lie up
/// to one sampling interval past `to`. `records` are expected in time order.
///
/// A row is "time,voltage 1,voltage 2,current,power,temperature,SOC,status":
/// the time as dd/mm/yyyy hh:mm:ss in the local time zone of this process (TZ
/// applies), volts and amperes with three decimals, watts and degrees with
/// two, an empty second voltage on models without one, the state of charge as
/// a whole percentage (empty when not available, "unknown" above 100), and the
/// power status as its short name. Returns false when `out` failed.
bool writeLogCsv(std::ostream& out, std::vector<LogRecord> const& records, int64_t from = 0,
                 int64_t to = std::numeric_limits<int64_t>::max());

/// Reads one device's folder of the local log store: every file named "r",
/// eight hex digits and ".log" (13 characters) is read whole and decoded for
/// the model `hardwareRevision`; other names are ignored. Records are appended
/// to `records` ordered by time (files taken in identifier order, so records
/// of the same second keep their file order). Returns false with `error` set
/// when the folder or one of its log files cannot be read.
bool loadLogDirectory(std::filesystem::path const& directory, uint8_t hardwareRevision, std::vector<LogRecord>& records,
                      std::string& error);
