#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "byte_io.h"
#include "zelmor_schedule.h"

namespace {

constexpr uint64_t kReservedBits = 0xFFC0000000000000;  // bits 54-63

TEST(ScheduleTest, DefaultIsEveryDayFromMidnightNamedNewTimer) {
    ZelmorSchedule const schedule;
    EXPECT_EQ(schedule.getName(), "New Timer");
    ZelmorSchedule::Bytes expected{};
    writeLe<uint64_t>(expected.data(), uint64_t{127} << 23);  // every day of the week, 00:00 to 00:00
    std::string const name = "New Timer";
    std::copy(name.begin(), name.end(), expected.begin() + 8);
    EXPECT_EQ(schedule.bytes(), expected);
}

TEST(ScheduleTest, FieldsSitWhereTheDeviceExpectsThem) {
    ZelmorSchedule schedule;
    schedule.setTiming(0);
    schedule.setStartMinute(59);
    schedule.setStartHour(23);
    schedule.setEndMinute(1);
    schedule.setEndHour(7);
    schedule.setDayOfMonthMode();
    schedule.setRepeatValue(31);
    uint64_t const expected =
        59 | uint64_t{23} << 6 | uint64_t{1} << 11 | uint64_t{7} << 17 | uint64_t{1} << 22 | uint64_t{31} << 23;
    EXPECT_EQ(schedule.getTiming(), expected);
    EXPECT_EQ(readLe<uint64_t>(schedule.bytes().data()), expected);
    EXPECT_TRUE(schedule.isDayOfMonthMode());
}

TEST(ScheduleTest, NameKeepsFifteenCharactersAndATerminator) {
    ZelmorSchedule schedule;
    schedule.setName("Nineteen characters");
    EXPECT_EQ(schedule.getName(), "Nineteen charac");
    auto const& bytes = schedule.bytes();
    EXPECT_EQ(std::string(bytes.begin() + 8, bytes.begin() + 23), "Nineteen charac");
    EXPECT_EQ(bytes[23], 0);

    // A shorter name clears what a longer one left behind.
    schedule.setName("Pump");
    EXPECT_EQ(schedule.getName(), "Pump");
    for (size_t i = 12; i < ZelmorSchedule::kSize; ++i) EXPECT_EQ(bytes[i], 0) << i;

    // A name from the device without a terminator stays inside the record.
    ZelmorSchedule::Bytes unterminated{};
    std::fill(unterminated.begin() + 8, unterminated.end(), 'x');
    EXPECT_EQ(ZelmorSchedule(unterminated).getName(), std::string(16, 'x'));
}

TEST(ScheduleTest, EqualTimingWithDifferentNamesIsEqual) {
    ZelmorSchedule a;
    ZelmorSchedule b;
    a.setName("Morning");
    b.setName("Evening");
    EXPECT_EQ(a, b);
    b.setEndHour(1);
    EXPECT_FALSE(a == b);
}

TEST(ScheduleTest, OutOfRangeValuesAreCutToTheirFieldAndSpareNeighbours) {
    ZelmorSchedule schedule;
    schedule.setStartMinute(45);
    schedule.setStartHour(22);
    schedule.setEndHour(21);
    schedule.setEndMinute(75);
    EXPECT_EQ(schedule.getEndMinute(), 11u);
    EXPECT_EQ(schedule.getStartMinute(), 45u);
    EXPECT_EQ(schedule.getStartHour(), 22u);
    EXPECT_EQ(schedule.getEndHour(), 21u);
    EXPECT_EQ(schedule.getRepeatValue(), 127u);

    schedule.setStartHour(32);
    EXPECT_EQ(schedule.getStartHour(), 0u);
    EXPECT_EQ(schedule.getStartMinute(), 45u);
    EXPECT_EQ(schedule.getEndMinute(), 11u);

    schedule.setRepeatValue(0xFFFFFFFF);
    EXPECT_EQ(schedule.getRepeatValue(), 0x7FFFFFFFu);
    EXPECT_EQ(schedule.getTiming() & kReservedBits, 0u);
    EXPECT_TRUE(schedule.isDayOfWeekMode());
}

TEST(ScheduleTest, ReservedBitsSurviveEdits) {
    ZelmorSchedule schedule;
    schedule.setTiming(schedule.getTiming() | kReservedBits);
    schedule.setStartMinute(30);
    schedule.setStartHour(6);
    schedule.setEndMinute(15);
    schedule.setEndHour(18);
    schedule.setDayOfMonthMode();
    schedule.setRepeatValue(0);
    schedule.setDayOfWeekMode();
    schedule.setRepeatValue(ZelmorSchedule::kMonday | ZelmorSchedule::kSunday);
    schedule.setName("Lights");
    EXPECT_EQ(schedule.getTiming() & kReservedBits, kReservedBits);
    EXPECT_EQ(schedule.getRepeatValue(), 65u);
    EXPECT_EQ(schedule.getStartHour(), 6u);
    EXPECT_EQ(schedule.getEndMinute(), 15u);
}

}  // namespace
