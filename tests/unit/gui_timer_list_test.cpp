// What the timers dialog shows and how its controls change a timer: texts,
// the day mask, the edit and repeat-mode rules and the duplicate check.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "timer_list.h"

namespace {

/// A timer of a timing word: start minute from bit 0, start hour from bit 6,
/// end minute 11, end hour 17, day-of-month mode 22, repeat value 23.
ZelmorSchedule timer(uint64_t timing, std::string const& name = "Pump") {
    ZelmorSchedule t;
    t.setTiming(timing);
    t.setName(name);
    return t;
}

TEST(GuiTimerList, ItemsNamesAndDayMask) {
    std::pair<unsigned, std::string> const hours[] = {{0, "12 AM"}, {11, "11 AM"}, {12, "12 PM"}, {23, "11 PM"}};
    for (auto const& [hour, text] : hours) EXPECT_EQ(hourItems().at(hour), text);
    EXPECT_EQ(std::tuple(hourItems().size(), minuteItems().size(), dayOfMonthItems().size()),
              std::tuple(24u, 60u, 31u));
    EXPECT_EQ(std::tuple(minuteItems()[7], dayOfMonthItems()[0], dayOfMonthItems()[30]), std::tuple("07", "1", "31"));
    std::pair<std::string, std::string> const names[] = {{"Nineteen characters", "Nineteen charac"},
                                                         {std::string(14, 'x') + "é", std::string(14, 'x')}};
    for (auto const& [typed, kept] : names) EXPECT_EQ(fitTimerName(typed), kept) << typed;
    WeekdayBoxes const mondayWednesdaySunday = {true, false, true, false, false, false, true};
    EXPECT_EQ(dayMask(mondayWednesdaySunday), 1u | 4 | 64);
    EXPECT_EQ(weekdayBoxes(0x80 | 1 | 4 | 64), mondayWednesdaySunday);
}

// Values without an item show unselected and edits keep them; a timer without
// a start time runs from 00:00. Day of week to day of month gives day 1; back
// gives an empty mask, which the boxes fill at the next edit.
TEST(GuiTimerList, EditsAndRepeatModeSwitches) {
    // Bits 54 to 63 and the end hour 25 stay through every edit below.
    constexpr uint64_t kUnshown = uint64_t{0x3FF} << 54 | 25u << 17;
    ZelmorSchedule t = timer(kUnshown | uint64_t{40} << 23 | 1u << 22 | 6u << 6);
    EXPECT_EQ(timerControls(t), (TimerControls{6, 0, -1, 0, true, true, {}, -1}));
    TimerControls controls = editTimer(t, {6, 0, -1, 0, false, true, {}, -1});
    EXPECT_EQ(controls, (TimerControls{0, 0, -1, 0, false, true, {}, -1}));
    EXPECT_EQ(t.getTiming(), kUnshown | uint64_t{40} << 23 | 1u << 22);

    controls.dayOfMonthMode = false;
    controls = switchRepeatMode(t, controls);
    EXPECT_EQ(t.getTiming(), kUnshown);
    editTimer(t, controls);
    EXPECT_EQ(t.getTiming(), kUnshown | uint64_t{127} << 23);
    controls.dayOfMonthMode = true;
    controls = switchRepeatMode(t, controls);
    EXPECT_EQ(t.getTiming(), kUnshown | uint64_t{1} << 23 | 1u << 22);
    EXPECT_EQ(controls.weekdays, WeekdayBoxes{});
    for (int const item : {30, 0}) {
        controls.dayOfMonth = item;
        editTimer(t, controls);
        EXPECT_EQ(t.getRepeatValue(), static_cast<uint32_t>(item) + 1);
    }
}

TEST(GuiTimerList, DuplicatesAreTimersEqualInTimingWhateverTheirNames) {
    std::vector<ZelmorSchedule> const timers = {timer(1, "Morning"), timer(2, "Evening"), timer(2, "Late"),
                                                timer(1 | 1u << 22), timer(1, "Other name")};
    // The first so many timers above, and their first pair by its first timer.
    std::pair<size_t, std::optional<std::pair<size_t, size_t>>> const cases[] = {
        {0, std::nullopt}, {1, std::nullopt}, {2, std::nullopt}, {3, std::pair{1u, 2u}}, {5, std::pair{0u, 4u}}};
    for (auto const& [count, duplicate] : cases)
        EXPECT_EQ(findDuplicateTimers({timers.begin(), timers.begin() + count}), duplicate) << count;
}

}  // namespace
