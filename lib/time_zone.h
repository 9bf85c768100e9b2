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

namespace date {
class time_zone;
}

/// The wall clock of one zone read at many instants: the zone is looked up
/// once, and its offset kept for as long as the zone's rules keep it (a
/// device logging every second asks for the same offset for months).
class ZoneClock {
public:
    /// An empty or unknown zone is UTC.
    explicit ZoneClock(std::string_view zone);

    /// As wallClockSeconds().
    int64_t wallClockSeconds(int64_t utcSeconds);

private:
    date::time_zone const* zone_;
    // The offset holds for instants in [from_, until_).
    int64_t from_ = 0;
    int64_t until_ = 0;
    int64_t offset_ = 0;
};

/// The wall-clock time in `zone` at `utcSeconds`, as seconds since 1970 read
/// as if the wall clock were UTC (ready for a UTC formatter). An empty or
/// unknown zone gives UTC.
int64_t wallClockSeconds(int64_t utcSeconds, std::string_view zone);
