#include "time_zone.h"

#include <algorithm>
#include <chrono>

#include <date/tz.h>

namespace {

// Files of the zoneinfo folder that are not zones of their own: the
// system's own setting, the rules for POSIX strings and a placeholder.
bool isZoneName(std::string_view name) {
    return !name.empty() && name != "localtime" && name != "posixrules" && name != "Factory";
}

date::time_zone const* findZone(std::string_view name) {
    if (!isZoneName(name)) return nullptr;
    auto const& zones = date::get_tzdb().zones;
    auto const found =
        std::lower_bound(zones.begin(), zones.end(), name,
                         [](date::time_zone const& zone, std::string_view n) { return zone.name() < n; });
    return found != zones.end() && found->name() == name ? &*found : nullptr;
}

}  // namespace

std::vector<std::string> timeZoneNames() {
    std::vector<std::string> names;
    for (date::time_zone const& zone : date::get_tzdb().zones)
        if (isZoneName(zone.name())) names.push_back(zone.name());
    std::sort(names.begin(), names.end());
    return names;
}

bool isKnownTimeZone(std::string_view name) { return findZone(name) != nullptr; }

int64_t wallClockSeconds(int64_t utcSeconds, std::string_view zone) {
    date::time_zone const* found = findZone(zone);
    if (!found) return utcSeconds;
    date::sys_seconds const instant{std::chrono::seconds{utcSeconds}};
    return utcSeconds + found->get_info(instant).offset.count();
}

ZoneClock::ZoneClock(std::string_view zone) : zone_(findZone(zone)) {}

int64_t ZoneClock::wallClockSeconds(int64_t utcSeconds) {
    if (!zone_) return utcSeconds;
    if (utcSeconds < from_ || utcSeconds >= until_) {
        date::sys_info const info = zone_->get_info(date::sys_seconds{std::chrono::seconds{utcSeconds}});
        from_ = info.begin.time_since_epoch().count();
        until_ = info.end.time_since_epoch().count();
        offset_ = info.offset.count();
    }
    return utcSeconds + offset_;
}
