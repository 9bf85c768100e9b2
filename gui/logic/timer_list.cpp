#include "timer_list.h"

#include <fmt/format.h>

namespace {

constexpr unsigned kHours = 24;
constexpr unsigned kMinutes = 60;
constexpr unsigned kDaysOfMonth = 31;

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

}  // namespace

uint32_t dayMask(WeekdayBoxes const& boxes) {
    uint32_t mask = 0;
    for (size_t i = 0; i < boxes.size(); ++i)
        if (boxes[i]) mask |= 1u << i;
    return mask;
}

WeekdayBoxes weekdayBoxes(uint32_t mask) {
    WeekdayBoxes boxes{};
    for (size_t i = 0; i < boxes.size(); ++i) boxes[i] = (mask >> i & 1) != 0;
    return boxes;
}

std::string hourText(unsigned hour) {
    unsigned const onClock = hour % 12 == 0 ? 12 : hour % 12;
    return fmt::format("{} {}", onClock, hour < 12 ? "AM" : "PM");
}

std::string minuteText(unsigned minute) { return fmt::format("{:02}", minute); }

std::vector<std::string> hourItems() {
    std::vector<std::string> items;
    for (unsigned hour = 0; hour < kHours; ++hour) items.push_back(hourText(hour));
    return items;
}

std::vector<std::string> minuteItems() {
    std::vector<std::string> items;
    for (unsigned minute = 0; minute < kMinutes; ++minute) items.push_back(minuteText(minute));
    return items;
}

std::vector<std::string> dayOfMonthItems() {
    std::vector<std::string> items;
    for (unsigned day = 1; day <= kDaysOfMonth; ++day) items.push_back(std::to_string(day));
    return items;
}

TimerControls timerControls(ZelmorSchedule const& timer) {
    // A record keeps hours and minutes up to 31 and 63; the choices have no
    // item for more, so such a time shows unselected until it is edited.
    auto const item = [](unsigned value, unsigned count) { return value < count ? static_cast<int>(value) : -1; };
    TimerControls c;
    c.startHour = item(timer.getStartHour(), kHours);
    c.startMinute = item(timer.getStartMinute(), kMinutes);
    c.endHour = item(timer.getEndHour(), kHours);
    c.endMinute = item(timer.getEndMinute(), kMinutes);
    c.startTimeEnabled = timer.getStartHour() != 0 || timer.getStartMinute() != 0;
    c.dayOfMonthMode = timer.isDayOfMonthMode();
    if (c.dayOfMonthMode) {
        uint32_t const day = timer.getRepeatValue();
        c.dayOfMonth = day >= 1 && day <= kDaysOfMonth ? static_cast<int>(day - 1) : -1;
    } else {
        c.weekdays = weekdayBoxes(timer.getRepeatValue());
    }
    return c;
}

TimerControls editTimer(ZelmorSchedule& timer, TimerControls controls) {
    if (!controls.startTimeEnabled) controls.startHour = controls.startMinute = 0;
    // An unselected choice leaves its field as it is.
    auto const set = [&timer](void (ZelmorSchedule::*setter)(unsigned), int item) {
        if (item >= 0) (timer.*setter)(static_cast<unsigned>(item));
    };
    set(&ZelmorSchedule::setStartHour, controls.startHour);
    set(&ZelmorSchedule::setStartMinute, controls.startMinute);
    set(&ZelmorSchedule::setEndHour, controls.endHour);
    set(&ZelmorSchedule::setEndMinute, controls.endMinute);
    if (controls.dayOfMonthMode) {
        timer.setDayOfMonthMode();
        if (controls.dayOfMonth >= 0) timer.setRepeatValue(static_cast<uint32_t>(controls.dayOfMonth) + 1);
    } else {
        timer.setDayOfWeekMode();
        timer.setRepeatValue(dayMask(controls.weekdays));
    }
    return controls;
}

TimerControls switchRepeatMode(ZelmorSchedule& timer, TimerControls controls) {
    if (controls.dayOfMonthMode) {
        controls.weekdays.fill(false);
        controls.dayOfMonth = 0;
        timer.setDayOfMonthMode();
        timer.setRepeatValue(1);
    } else {
        controls.weekdays.fill(true);
        controls.dayOfMonth = -1;
        timer.setDayOfWeekMode();
        timer.setRepeatValue(0);
    }
    return controls;
}

std::string fitTimerName(std::string_view utf8) {
    if (utf8.size() <= kMaxTimerNameBytes) return std::string(utf8);
    size_t end = kMaxTimerNameBytes;
    while (end > 0 && isContinuationByte(utf8[end])) --end;
    return std::string(utf8.substr(0, end));
}

std::optional<std::pair<size_t, size_t>> findDuplicateTimers(std::vector<ZelmorSchedule> const& timers) {
    for (size_t i = 0; i < timers.size(); ++i)
        for (size_t j = i + 1; j < timers.size(); ++j)
            if (timers[i] == timers[j]) return std::pair{i, j};
    return std::nullopt;
}

int selectionAfterDelete(size_t deleted, size_t remaining) {
    if (remaining == 0) return -1;
    return static_cast<int>(deleted < remaining ? deleted : remaining - 1);
}
