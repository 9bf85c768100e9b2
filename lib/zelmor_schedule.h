#pragma once

#include <array>
#include <cstdint>
#include <string>

/// One timer of a device: a daily time window repeated on chosen weekdays or on
/// a day of the month. Kept exactly as the 24 bytes that travel on the wire.
class ZelmorSchedule {
public:
    static constexpr size_t kSize = 24;
    using Bytes = std::array<uint8_t, kSize>;

    static constexpr uint32_t kMonday = 1, kTuesday = 2, kWednesday = 4, kThursday = 8, kFriday = 16,
                              kSaturday = 32, kSunday = 64;

    /// Start 00:00, end 00:00, every day of the week, named "New Timer".
    ZelmorSchedule();
    /// A record exactly as received from the device.
    explicit ZelmorSchedule(Bytes const& bytes) : bytes_(bytes) {}

    Bytes const& bytes() const { return bytes_; }

    uint64_t getTiming() const;
    void setTiming(uint64_t timing);

    unsigned getStartMinute() const;
    void setStartMinute(unsigned minute);
    unsigned getStartHour() const;
    void setStartHour(unsigned hour);
    unsigned getEndMinute() const;
    void setEndMinute(unsigned minute);
    unsigned getEndHour() const;
    void setEndHour(unsigned hour);

    bool isDayOfWeekMode() const;
    bool isDayOfMonthMode() const;
    void setDayOfWeekMode();
    void setDayOfMonthMode();

    /// Day mask in day-of-week mode, day number in day-of-month mode (31 bits).
    uint32_t getRepeatValue() const;
    void setRepeatValue(uint32_t value);

    std::string getName() const;
    /// Keeps at most 15 characters.
    void setName(std::string const& name);

    /// Schedules are equal when their timing words are; names do not count.
    bool operator==(ZelmorSchedule const& other) const { return getTiming() == other.getTiming(); }

private:
    uint64_t field(unsigned shift, unsigned width) const;
    void setField(unsigned shift, unsigned width, uint64_t value);

    Bytes bytes_{};
};
