#include "zelmor_schedule.h"

#include <algorithm>
#include <cstring>

#include "byte_io.h"

namespace {

// Bit fields of the 64-bit timing word: {shift, width}.
constexpr unsigned kStartMinuteShift = 0, kStartMinuteWidth = 6;
constexpr unsigned kStartHourShift = 6, kStartHourWidth = 5;
constexpr unsigned kEndMinuteShift = 11, kEndMinuteWidth = 6;
constexpr unsigned kEndHourShift = 17, kEndHourWidth = 5;
constexpr unsigned kModeShift = 22, kModeWidth = 1;
constexpr unsigned kRepeatShift = 23, kRepeatWidth = 31;

constexpr size_t kNameOffset = 8;
constexpr size_t kNameMax = 15;

}  // namespace

ZelmorSchedule::ZelmorSchedule() {
    setTiming(0x3F800000);  // every day of the week, 00:00 to 00:00
    setName("New Timer");
}

uint64_t ZelmorSchedule::getTiming() const { return readLe<uint64_t>(bytes_.data()); }

void ZelmorSchedule::setTiming(uint64_t timing) { writeLe<uint64_t>(bytes_.data(), timing); }

uint64_t ZelmorSchedule::field(unsigned shift, unsigned width) const {
    return (getTiming() >> shift) & ((uint64_t{1} << width) - 1);
}

void ZelmorSchedule::setField(unsigned shift, unsigned width, uint64_t value) {
    uint64_t const mask = ((uint64_t{1} << width) - 1) << shift;
    setTiming((getTiming() & ~mask) | ((value << shift) & mask));
}

unsigned ZelmorSchedule::getStartMinute() const { return field(kStartMinuteShift, kStartMinuteWidth); }
void ZelmorSchedule::setStartMinute(unsigned minute) { setField(kStartMinuteShift, kStartMinuteWidth, minute); }
unsigned ZelmorSchedule::getStartHour() const { return field(kStartHourShift, kStartHourWidth); }
void ZelmorSchedule::setStartHour(unsigned hour) { setField(kStartHourShift, kStartHourWidth, hour); }
unsigned ZelmorSchedule::getEndMinute() const { return field(kEndMinuteShift, kEndMinuteWidth); }
void ZelmorSchedule::setEndMinute(unsigned minute) { setField(kEndMinuteShift, kEndMinuteWidth, minute); }
unsigned ZelmorSchedule::getEndHour() const { return field(kEndHourShift, kEndHourWidth); }
void ZelmorSchedule::setEndHour(unsigned hour) { setField(kEndHourShift, kEndHourWidth, hour); }

bool ZelmorSchedule::isDayOfWeekMode() const { return field(kModeShift, kModeWidth) == 0; }
bool ZelmorSchedule::isDayOfMonthMode() const { return field(kModeShift, kModeWidth) == 1; }
void ZelmorSchedule::setDayOfWeekMode() { setField(kModeShift, kModeWidth, 0); }
void ZelmorSchedule::setDayOfMonthMode() { setField(kModeShift, kModeWidth, 1); }

uint32_t ZelmorSchedule::getRepeatValue() const {
    return static_cast<uint32_t>(field(kRepeatShift, kRepeatWidth));
}
void ZelmorSchedule::setRepeatValue(uint32_t value) { setField(kRepeatShift, kRepeatWidth, value); }

std::string ZelmorSchedule::getName() const {
    auto const* name = reinterpret_cast<char const*>(bytes_.data() + kNameOffset);
    return std::string(name, strnlen(name, kSize - kNameOffset));
}

void ZelmorSchedule::setName(std::string const& name) {
    size_t const n = std::min(name.size(), kNameMax);
    std::fill(bytes_.begin() + kNameOffset, bytes_.end(), 0);
    std::memcpy(bytes_.data() + kNameOffset, name.data(), n);
    bytes_[kSize - 1] = 0;
}
