// What the timers dialog shows and how its controls change a timer: item
// texts, the day mask, the edit and repeat-mode rules, names and the
// duplicate check.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "timer_list.h"

namespace {

ZelmorSchedule timer(unsigned startHour, unsigned endHour, std::string const& name = "Pump") {
    ZelmorSchedule t;
    t.setStartHour(startHour);
    t.setEndHour(endHour);
    t.setName(name);
    return t;
}

TEST(GuiTimerList, ItemsAndDayMask) {
    std::pair<unsigned, std::string> const hours[] = {{0, "12 AM"}, {11, "11 AM"}, {12, "12 PM"}, {23, "11 PM"}};
    for (auto const& [hour, text] : hours) EXPECT_EQ(hourItems().at(hour), text);
    EXPECT_EQ(hourItems().size(), 24u);
    EXPECT_EQ(minuteItems().size(), 60u);
    EXPECT_EQ(minuteItems()[7], "07");
    EXPECT_EQ(dayOfMonthItems().size(), 31u);
    EXPECT_EQ(dayOfMonthItems()[30], "31");
    std::pair<WeekdayBoxes, uint32_t> const masks[] = {
        {{}, 0}, {{true, false, true}, 1 | 4}, {{false, false, false, false, false, false, true}, 64}};
    for (auto const& [boxes, mask] : masks) {
        EXPECT_EQ(dayMask(boxes), mask);
        EXPECT_EQ(weekdayBoxes(mask | 0x80), boxes);
    }
}

// Values without an item show unselected and edits keep them; a timer from
// 00:00 has no start time, and one without a start time runs from 00:00.
TEST(GuiTimerList, ValuesWithoutAnItemAndTheStartTime) {
    constexpr uint64_t kKeptBits = uint64_t{0x3FF} << 54;
    ZelmorSchedule t = timer(6, 25);
    t.setTiming(t.getTiming() | kKeptBits);
    t.setDayOfMonthMode();
    t.setRepeatValue(40);
    TimerControls controls = timerControls(t);
    EXPECT_EQ(controls, (TimerControls{6, 0, -1, 0, true, true, {}, -1}));
    controls.startTimeEnabled = false;
    EXPECT_EQ(editTimer(t, controls), (TimerControls{0, 0, -1, 0, false, true, {}, -1}));
    EXPECT_EQ(t.getTiming(), kKeptBits | uint64_t{40} << 23 | uint64_t{1} << 22 | 25u << 17);
    EXPECT_FALSE(timerControls(t).startTimeEnabled);
}

// Day of week to day of month gives day 1; back gives an empty mask while
// every box shows checked, until the next edit takes the boxes.
TEST(GuiTimerList, RepeatModeSwitches) {
    ZelmorSchedule t = timer(6, 7);
    TimerControls controls = timerControls(t);
    controls.dayOfMonthMode = true;
    controls = switchRepeatMode(t, controls);
    // The timing word from bit 22 on: the mode, then the repeat value.
    EXPECT_EQ(std::tuple(t.getTiming() >> 22, controls.weekdays, controls.dayOfMonth),
              std::tuple(uint64_t{1 | 1 << 1}, WeekdayBoxes{}, 0));
    controls.dayOfMonthMode = false;
    controls = switchRepeatMode(t, controls);
    EXPECT_EQ(std::tuple(t.getTiming() >> 22, controls.weekdays, controls.dayOfMonth),
              std::tuple(uint64_t{0}, weekdayBoxes(127), -1));
    editTimer(t, controls);
    EXPECT_EQ(t.getRepeatValue(), 127u);
}

TEST(GuiTimerList, NamesKeepFifteenBytesOfWholeCharacters) {
    std::pair<std::string, std::string> const cases[] = {{"Fifteen chars..", "Fifteen chars.."},
                                                         {"Nineteen characters", "Nineteen charac"},
                                                         {std::string(14, 'x') + "ä", std::string(14, 'x')}};
    for (auto const& [typed, kept] : cases) EXPECT_EQ(fitTimerName(typed), kept) << typed;
}

TEST(GuiTimerList, DuplicatesAreTimersEqualInTimingWhateverTheirNames) {
    ZelmorSchedule const a = timer(6, 7, "Morning");
    ZelmorSchedule const b = timer(18, 23, "Evening");
    ZelmorSchedule monthly = a;
    monthly.setDayOfMonthMode();
    using Pair = std::optional<std::pair<size_t, size_t>>;
    std::pair<std::vector<ZelmorSchedule>, Pair> const cases[] = {
        {{}, std::nullopt},
        {{a}, std::nullopt},
        {{a, b, monthly}, std::nullopt},
        {{a, timer(6, 7, "Other name")}, std::pair{0u, 1u}},
        {{a, b, monthly, timer(18, 23, "Late"), a}, std::pair{0u, 4u}},
        {{a, b, monthly, timer(18, 23, "Late")}, std::pair{1u, 3u}},
    };
    for (auto const& [timers, duplicate] : cases) EXPECT_EQ(findDuplicateTimers(timers), duplicate) << timers.size();
}

}  // namespace
