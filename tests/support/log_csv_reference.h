// The CSV export written the plain way, one snprintf a row in the formats of
// the export: what the fast writer is held to, byte for byte, by its tests and
// beside which chart_bench times it.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "log_record.h"
#include "power_status.h"

/// The rows from the first record not before `from` to the first at or after `to`.
inline void writeLogCsvBySnprintf(std::FILE* out, std::vector<LogRecord> const& records, int64_t from, int64_t to) {
    char line[512];
    std::fprintf(out,
                 "Time (dd/mm/yyyy hh:mm:ss), Voltage 1 (V), Voltage 2 (V), Current (A), Power (W), Temperature "
                 "(°C), SOC (%%), Power Status\n");
    for (LogRecord const& r : records) {
        if (r.time < from) continue;
        std::time_t const stamp = r.time;
        std::tm fields{};
        gmtime_r(&stamp, &fields);
        std::string const time = fmt::format("{:%d/%m/%Y %H:%M:%S}", fields);
        std::string const voltage2 = std::isnan(r.voltage2) ? "" : fmt::format("{:.3f}", r.voltage2);
        std::string const soc = r.stateOfCharge == 255  ? ""
                                : r.stateOfCharge > 100 ? "unknown"
                                                        : std::to_string(r.stateOfCharge);
        std::snprintf(line, sizeof line, "%s,%.3f,%s,%.3f,%.2f,%.2f,%s,%s\n", time.c_str(), double{r.voltage1},
                      voltage2.c_str(), double{r.current}, double{r.power}, double{r.temperature}, soc.c_str(),
                      powerStatusText(r.powerStatus));
        std::fputs(line, out);
        if (r.time >= to) break;
    }
}
