#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Time zones come from the system's time-zone database (/usr/share/zoneinfo,
// read through the date library), so that a zone's rules, daylight saving
// time included, are as current as the system's.

/// The names the database knows ("America/Puerto_Rico", "Europe/Berlin", ...),
/// sorted.
std::vector<std::string> timeZoneNames();

bool isKnownTimeZone(std::string_view name);

/// The wall-clock time in `zone` at `utcSeconds`, as seconds since 1970 read
/// as if the wall clock were UTC (ready for a UTC formatter). An empty or
/// unknown zone gives UTC.
int64_t wallClockSeconds(int64_t utcSeconds, std::string_view zone);
