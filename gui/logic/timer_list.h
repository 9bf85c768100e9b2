#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zelmor_schedule.h"

// What the timers dialog shows and how its controls change a timer. The
// dialog only reads its controls into a TimerControls, hands it here and
// shows what comes back.

/// The most timers a device keeps; "Add New Timer" is disabled at this count.
inline constexpr size_t kMaxTimers = 32;
/// The longest timer name a record keeps, in bytes.
inline constexpr size_t kMaxTimerNameBytes = 15;

/// The weekday check boxes, Monday first: box i stands for bit i of the day
/// mask (Monday 1 ... Sunday 64).
inline constexpr std::array<char const*, 7> kWeekdayNames = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                                             "Friday", "Saturday", "Sunday"};
using WeekdayBoxes = std::array<bool, kWeekdayNames.size()>;

uint32_t dayMask(WeekdayBoxes const& boxes);
/// The boxes of the seven low bits of a mask; higher bits are not shown.
WeekdayBoxes weekdayBoxes(uint32_t mask);

/// "12 AM", "1 AM" ... "11 AM", "12 PM", "1 PM" ... "11 PM" for hours 0 to 23.
std::string hourText(unsigned hour);
/// Two digits, "00" to "59".
std::string minuteText(unsigned minute);
/// The items of the hour (24), minute (60) and day-of-month (31, "1" to "31")
/// choices: the item index is the hour or minute, or the day minus one.
std::vector<std::string> hourItems();
std::vector<std::string> minuteItems();
std::vector<std::string> dayOfMonthItems();

/// What the edit controls show for the selected timer. Choice selections are
/// item indices, -1 for none. Which controls are enabled follows from it: the
/// start choices with `startTimeEnabled`, the weekday boxes in day-of-week
/// mode, the day-of-month choice in day-of-month mode.
struct TimerControls {
    int startHour = 0;
    int startMinute = 0;
    int endHour = 0;
    int endMinute = 0;
    bool startTimeEnabled = false;
    bool dayOfMonthMode = false;  // "Repeat Mode": false "Day of Week" (item 0), true "Day of Month" (item 1)
    WeekdayBoxes weekdays{};
    int dayOfMonth = -1;
    bool operator==(TimerControls const&) const = default;
};

/// The controls for a timer just selected. "Enable start time" is checked
/// unless the timer starts at 00:00: a timer without a start time runs from
/// midnight. In day-of-month mode a day outside 1 to 31 selects nothing.
TimerControls timerControls(ZelmorSchedule const& timer);

/// The edit rule, run on any change of the time choices, "Enable start time",
/// the weekday boxes or the day-of-month choice: the four times from the
/// choices (start 00:00 while the start time is not enabled); in day-of-month
/// mode the day from the choice (with no day selected the timer keeps its
/// day), otherwise day-of-week mode with the mask of the boxes. Other bits of
/// the record are kept. Returns what the controls show afterwards.
TimerControls editTimer(ZelmorSchedule& timer, TimerControls controls);

/// The repeat-mode rule, run instead of the edit rule when "Repeat Mode"
/// changes to `controls.dayOfMonthMode`. "Day of Week": every box checked, no
/// day selected, the timer in day-of-week mode with an empty mask (the boxes
/// count from the next edit). "Day of Month": every box cleared, the first day
/// selected, the timer on day 1. Returns what the controls show afterwards.
TimerControls switchRepeatMode(ZelmorSchedule& timer, TimerControls controls);

/// A typed name as a record keeps it: UTF-8 cut to kMaxTimerNameBytes bytes,
/// never inside a character.
std::string fitTimerName(std::string_view utf8);

/// The first pair i < j of timers whose timing fields are all equal, names
/// aside (ZelmorSchedule's equality); nothing when there is none. A list of
/// zero or one timer has none.
std::optional<std::pair<size_t, size_t>> findDuplicateTimers(std::vector<ZelmorSchedule> const& timers);

/// The timer selected after deleting the one at `deleted`, leaving `remaining`
/// timers: the one that took its place, else the new last one; -1 when none is
/// left.
int selectionAfterDelete(size_t deleted, size_t remaining);
