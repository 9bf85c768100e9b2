#include "logging_mode.h"

#include <cstddef>
#include <iterator>

namespace sim {

namespace {

// Indexed by the mode; mode 0 is "Disabled".
constexpr uint32_t kIntervals[] = {0, 1, 2, 5, 10, 20, 30, 60};

uint32_t distance(uint32_t a, uint32_t b) { return a > b ? a - b : b - a; }

}  // namespace

std::optional<uint32_t> loggingIntervalSeconds(uint8_t mode) {
    if (mode == 0 || mode >= std::size(kIntervals)) return std::nullopt;
    return kIntervals[mode];
}

uint8_t nearestLoggingMode(uint32_t seconds) {
    if (seconds == 0) return 0;
    size_t best = 1;
    for (size_t mode = 2; mode < std::size(kIntervals); ++mode)
        if (distance(kIntervals[mode], seconds) < distance(kIntervals[best], seconds)) best = mode;
    return static_cast<uint8_t>(best);
}

}  // namespace sim
