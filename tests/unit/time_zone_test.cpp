// Zones from the system's database: the names offered, and wall clocks on
// both sides of daylight saving time, one instant at a time and along a run.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <tuple>

#include "time_zone.h"

namespace {

TEST(TimeZoneTest, NamesAreTheDatabaseZonesSorted) {
    auto const names = timeZoneNames();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    for (char const* zone : {"America/Puerto_Rico", "Europe/Berlin", "UTC"}) {
        EXPECT_TRUE(std::binary_search(names.begin(), names.end(), zone)) << zone;
        EXPECT_TRUE(isKnownTimeZone(zone)) << zone;
    }
    // Files of the zoneinfo folder that are no zone of their own.
    for (char const* file : {"localtime", "posixrules", "Factory", "", "Mars/Olympus_Mons"}) {
        EXPECT_FALSE(std::binary_search(names.begin(), names.end(), file)) << file;
        EXPECT_FALSE(isKnownTimeZone(file)) << file;
    }
}

TEST(TimeZoneTest, WallClockFollowsDaylightSavingTime) {
    // Berlin: 02:00 CET becomes 03:00 CEST at 01:00 UTC on 2025-03-30, and
    // 03:00 CEST becomes 02:00 CET at 01:00 UTC on 2025-10-26.
    constexpr int64_t kSpring = 1743296400;
    constexpr int64_t kAutumn = 1761440400;
    std::tuple<int64_t, char const*, int64_t> const clocks[] = {
        {kSpring - 1, "Europe/Berlin", 3600},
        {kSpring, "Europe/Berlin", 7200},
        {kAutumn - 1, "Europe/Berlin", 7200},
        {kAutumn, "Europe/Berlin", 3600},
        {kSpring, "Asia/Kolkata", 19800},
        {kSpring, "America/New_York", -14400},
        {kSpring, "", 0},
        {kSpring, "Nowhere/Special", 0},
    };
    for (auto const& [utc, zone, offset] : clocks) {
        SCOPED_TRACE(zone);
        EXPECT_EQ(wallClockSeconds(utc, zone) - utc, offset) << utc;
    }
}

TEST(TimeZoneTest, ZoneClockAgreesAlongARunAndBackwards) {
    // A device logging every ten minutes through a year, then a clock set back.
    ZoneClock clock("Europe/Berlin");
    for (int64_t utc = 1735689600; utc < 1767225600; utc += 600)
        ASSERT_EQ(clock.wallClockSeconds(utc), wallClockSeconds(utc, "Europe/Berlin")) << utc;
    EXPECT_EQ(clock.wallClockSeconds(1743296399), 1743296399 + 3600);
    ZoneClock utc("");
    EXPECT_EQ(utc.wallClockSeconds(1743296400), 1743296400);
}

}  // namespace
