#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "byte_io.h"
#include "test_bytes.h"
#include "zelmor_schedule.h"

namespace {

TEST(ScheduleTest, DefaultIsEveryDayFromMidnightNamedNewTimer) {
    EXPECT_EQ(hex(ZelmorSchedule().bytes()), "00 00 80 3f 00 00 00 00 4e 65 77 20 54 69 6d 65 72 00 00 00 00 00 00 00");
}

// Each field of the timing word where the device expects it: a value is cut
// to the field's width and no other bit of the word, reserved ones included,
// changes.
TEST(ScheduleTest, EachFieldTakesItsOwnBitsOnly) {
    struct Field {
        char const* name;
        unsigned shift;
        unsigned width;
        std::function<void(ZelmorSchedule&, uint32_t)> set;
        std::function<uint32_t(ZelmorSchedule const&)> get;
    } const fields[] = {
        {"start minute", 0, 6, &ZelmorSchedule::setStartMinute, &ZelmorSchedule::getStartMinute},
        {"start hour", 6, 5, &ZelmorSchedule::setStartHour, &ZelmorSchedule::getStartHour},
        {"end minute", 11, 6, &ZelmorSchedule::setEndMinute, &ZelmorSchedule::getEndMinute},
        {"end hour", 17, 5, &ZelmorSchedule::setEndHour, &ZelmorSchedule::getEndHour},
        {"repeat", 23, 31, &ZelmorSchedule::setRepeatValue, &ZelmorSchedule::getRepeatValue},
    };
    for (auto const& f : fields) {
        SCOPED_TRACE(f.name);
        uint64_t const mask = ((uint64_t{1} << f.width) - 1) << f.shift;
        ZelmorSchedule schedule;
        schedule.setTiming(~uint64_t{0});
        f.set(schedule, uint32_t{1} << f.width);  // one past the largest value: cut to 0
        EXPECT_EQ(f.get(schedule), 0u);
        EXPECT_EQ(schedule.getTiming(), ~mask);
        f.set(schedule, 5);
        EXPECT_EQ(f.get(schedule), 5u);
        EXPECT_EQ(schedule.getTiming(), ~mask | uint64_t{5} << f.shift);
        EXPECT_EQ(readLe<uint64_t>(schedule.bytes().data()), schedule.getTiming());
    }
    ZelmorSchedule schedule;
    schedule.setDayOfMonthMode();
    EXPECT_EQ(schedule.getTiming(), 0x3FC00000u);
    EXPECT_TRUE(schedule.isDayOfMonthMode());
    schedule.setDayOfWeekMode();
    EXPECT_EQ(schedule.getTiming(), 0x3F800000u);
    EXPECT_TRUE(schedule.isDayOfWeekMode());
}

// Fifteen characters and a terminator; the name takes no part in equality.
TEST(ScheduleTest, NameKeepsFifteenCharacters) {
    ZelmorSchedule schedule;
    schedule.setName("Nineteen characters");
    EXPECT_EQ(schedule.getName(), "Nineteen charac");
    EXPECT_EQ(hex(schedule.bytes().data() + 8, 16), "4e 69 6e 65 74 65 65 6e 20 63 68 61 72 61 63 00");
    // A shorter name clears what a longer one left behind.
    schedule.setName("Pump");
    EXPECT_EQ(hex(schedule.bytes().data() + 8, 16), "50 75 6d 70 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(schedule, ZelmorSchedule());
    schedule.setEndHour(1);
    EXPECT_FALSE(schedule == ZelmorSchedule());

    // A name from the device without a terminator stays inside the record.
    ZelmorSchedule::Bytes unterminated{};
    std::fill(unterminated.begin() + 8, unterminated.end(), 'x');
    EXPECT_EQ(ZelmorSchedule(unterminated).getName(), std::string(16, 'x'));
}

}  // namespace
