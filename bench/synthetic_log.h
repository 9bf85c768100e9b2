// The data log the benchmarks read, chart and export: one record a second of
// a battery that charges by day and discharges by night, with noise.
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

#include "log_record.h"

namespace bench {

class SyntheticLog {
public:
    /// The next second's record, stamped `time`.
    LogRecord next(uint32_t time) {
        constexpr uint32_t kSecondsPerDay = 86400;
        noise_ = noise_ * 1664525u + 1013904223u;
        double const phase = static_cast<double>(second_++ % kSecondsPerDay) / kSecondsPerDay * 2 * std::numbers::pi;
        double const jitter = static_cast<double>(noise_ >> 8) / (1u << 24) - 0.5;
        LogRecord r;
        r.time = time;
        r.current = static_cast<float>(40 * std::sin(phase) + jitter);
        r.voltage1 = static_cast<float>(12.8 + 0.6 * std::sin(phase) + 0.01 * jitter);
        r.voltage2 = static_cast<float>(12.6 + 0.01 * jitter);
        r.power = r.voltage1 * r.current;
        r.temperature = static_cast<float>(20 + 5 * std::cos(phase));
        r.stateOfCharge = static_cast<uint8_t>(60 + 30 * std::sin(phase));
        r.powerStatus = 1;
        return r;
    }

private:
    uint32_t noise_ = 12345;
    uint64_t second_ = 0;
};

}  // namespace bench
