// What the timers dialog shows and how its controls change a timer: item
// texts, the day mask, the edit and repeat-mode rules, names and the
// duplicate check.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "timer_list.h"

namespace {

using Pair = std::optional<std::pair<size_t, size_t>>;

ZelmorSchedule timer(unsigned startHour, unsigned endHour, std::string const& name = "Pump") {
    ZelmorSchedule t;
    t.setStartHour(startHour);
    t.setEndHour(endHour);
    t.setName(name);
    return t;
}

TEST(GuiTimerList, ChoiceItems) {
    std::pair<unsigned, std::string> const hours[] = {{0, "12 AM"},  {1, "1 AM"},  {11, "11 AM"},
                                                      {12, "12 PM"}, {13, "1 PM"}, {23, "11 PM"}};
    for (auto const& [hour, text] : hours) {
        EXPECT_EQ(hourText(hour), text);
        EXPECT_EQ(hourItems().at(hour), text);
    }
    EXPECT_EQ(hourItems().size(), 24u);
    EXPECT_EQ(minuteItems().size(), 60u);
    EXPECT_EQ(minuteItems()[7], "07");
    EXPECT_EQ(minuteItems()[59], "59");
    EXPECT_EQ(dayOfMonthItems().size(), 31u);
    EXPECT_EQ(dayOfMonthItems()[0], "1");
    EXPECT_EQ(dayOfMonthItems()[30], "31");
}

TEST(GuiTimerList, DayMaskOfTheWeekdayBoxes) {
    std::pair<WeekdayBoxes, uint32_t> const cases[] = {
        {{}, 0},
        {{true, false, false, false, false, false, false}, 1},
        {{false, false, false, false, false, false, true}, 64},
        {{false, false, true, false, true, false, false}, 4 | 16},
        {{true, true, true, true, true, true, true}, 127},
    };
    for (auto const& [boxes, mask] : cases) {
        SCOPED_TRACE(mask);
        EXPECT_EQ(dayMask(boxes), mask);
        EXPECT_EQ(weekdayBoxes(mask), boxes);
        EXPECT_EQ(weekdayBoxes(mask | 0x80), boxes);
    }
}

TEST(GuiTimerList, ControlsShownForATimer) {
    ZelmorSchedule monthly = timer(6, 7);
    monthly.setStartMinute(30);
    monthly.setDayOfMonthMode();
    monthly.setRepeatValue(15);
    ZelmorSchedule outOfRange = monthly;
    outOfRange.setRepeatValue(40);
    outOfRange.setEndHour(25);
    ZelmorSchedule weekly = timer(0, 8);
    weekly.setRepeatValue(ZelmorSchedule::kMonday | ZelmorSchedule::kSunday);
    std::pair<ZelmorSchedule, TimerControls> const cases[] = {
        {monthly, {6, 30, 7, 0, true, true, {}, 14}},
        {outOfRange, {6, 30, -1, 0, true, true, {}, -1}},
        {weekly, {0, 0, 8, 0, false, false, {true, false, false, false, false, false, true}, -1}},
    };
    for (auto const& [t, controls] : cases) {
        SCOPED_TRACE(t.getTiming());
        EXPECT_EQ(timerControls(t), controls);
    }
}

TEST(GuiTimerList, EditTakesTheControlsAndKeepsTheOtherBits) {
    constexpr uint64_t kKeptBits = uint64_t{0x3FF} << 54;
    ZelmorSchedule monthly = timer(6, 7);
    monthly.setTiming(monthly.getTiming() | kKeptBits);
    monthly.setDayOfMonthMode();
    monthly.setRepeatValue(9);
    struct Case {
        char const* name;
        TimerControls controls;
        TimerControls shown;
        unsigned start, end;  // hour * 100 + minute
        bool dayOfMonth;
        uint32_t repeat;
    };
    TimerControls weekdays{5, 15, 22, 45, true, false, {true, false, false, false, false, true, true}, -1};
    TimerControls noStart = weekdays;
    noStart.startTimeEnabled = false;
    TimerControls shownNoStart = noStart;
    shownNoStart.startHour = shownNoStart.startMinute = 0;
    TimerControls dayFifteen{-1, 0, 23, 59, true, true, {}, 14};
    TimerControls noDay = dayFifteen;
    noDay.dayOfMonth = -1;
    Case const cases[] = {
        {"weekdays", weekdays, weekdays, 515, 2245, false, 1 | 32 | 64},
        {"no start time", noStart, shownNoStart, 0, 2245, false, 1 | 32 | 64},
        {"day of month", dayFifteen, dayFifteen, 600, 2359, true, 15},
        {"no day selected", noDay, noDay, 600, 2359, true, 9},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZelmorSchedule t = monthly;
        EXPECT_EQ(editTimer(t, c.controls), c.shown);
        EXPECT_EQ(t.getStartHour() * 100 + t.getStartMinute(), c.start);
        EXPECT_EQ(t.getEndHour() * 100 + t.getEndMinute(), c.end);
        EXPECT_EQ(t.isDayOfMonthMode(), c.dayOfMonth);
        EXPECT_EQ(t.getRepeatValue(), c.repeat);
        EXPECT_EQ(t.getTiming() & kKeptBits, kKeptBits);
        EXPECT_EQ(t.getName(), "Pump");
    }
}

// Day of week to day of month gives day 1; back gives an empty mask while
// every box shows checked, until the next edit takes the boxes.
TEST(GuiTimerList, RepeatModeSwitches) {
    ZelmorSchedule t = timer(6, 7);
    t.setRepeatValue(ZelmorSchedule::kTuesday);
    TimerControls controls = timerControls(t);
    controls.dayOfMonthMode = true;
    controls = switchRepeatMode(t, controls);
    EXPECT_TRUE(t.isDayOfMonthMode());
    EXPECT_EQ(t.getRepeatValue(), 1u);
    EXPECT_EQ(controls.weekdays, WeekdayBoxes{});
    EXPECT_EQ(controls.dayOfMonth, 0);

    controls.dayOfMonthMode = false;
    controls = switchRepeatMode(t, controls);
    EXPECT_TRUE(t.isDayOfWeekMode());
    EXPECT_EQ(t.getRepeatValue(), 0u);
    EXPECT_EQ(dayMask(controls.weekdays), 127u);
    EXPECT_EQ(controls.dayOfMonth, -1);
    EXPECT_EQ(t.getStartHour() * 100 + t.getEndHour(), 607u);

    editTimer(t, controls);
    EXPECT_EQ(t.getRepeatValue(), 127u);
}

TEST(GuiTimerList, NamesKeepFifteenBytesOfWholeCharacters) {
    std::pair<std::string, std::string> const cases[] = {
        {"", ""},
        {"Fifteen chars..", "Fifteen chars.."},
        {"Nineteen characters", "Nineteen charac"},
        {std::string(14, 'x') + "ä", std::string(14, 'x')},
        {"Pumpe Südhälfte", "Pumpe Südhälf"},
    };
    for (auto const& [typed, kept] : cases) EXPECT_EQ(fitTimerName(typed), kept) << typed;
}

TEST(GuiTimerList, DuplicatesAreTimersEqualInTimingWhateverTheirNames) {
    ZelmorSchedule const a = timer(6, 7, "Morning");
    ZelmorSchedule const b = timer(18, 23, "Evening");
    ZelmorSchedule monthly = a;
    monthly.setDayOfMonthMode();
    std::pair<std::vector<ZelmorSchedule>, Pair> const cases[] = {
        {{}, std::nullopt},
        {{a}, std::nullopt},
        {{a, b}, std::nullopt},
        {{a, monthly}, std::nullopt},
        {{a, timer(6, 7, "Other name")}, std::pair{0u, 1u}},
        {{a, b, monthly, timer(18, 23, "Late"), a}, std::pair{0u, 4u}},
        {{a, b, monthly, timer(18, 23, "Late")}, std::pair{1u, 3u}},
    };
    for (auto const& [timers, duplicate] : cases) {
        SCOPED_TRACE(timers.size());
        EXPECT_EQ(findDuplicateTimers(timers), duplicate);
    }
}

TEST(GuiTimerList, SelectionAfterDelete) {
    std::tuple<size_t, size_t, int> const cases[] = {{0, 0, -1}, {0, 2, 0}, {1, 2, 1}, {2, 2, 1}};
    for (auto const& [deleted, remaining, selected] : cases)
        EXPECT_EQ(selectionAfterDelete(deleted, remaining), selected) << deleted << " of " << remaining + 1;
}

}  // namespace
