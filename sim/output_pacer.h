#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace sim {

/// Spreads a connection's output over time at a given rate, as a slow link
/// would: a token bucket that holds at most a twentieth of a second's worth of
/// bytes (at least one), so that output comes in small, even pieces. The rate
/// may change between calls.
class OutputPacer {
public:
    using Clock = std::chrono::steady_clock;

    /// How many of `wanted` bytes may go out at `now`. When none may, `retryAt`
    /// is set to when the next byte may.
    size_t allowance(uint64_t bytesPerSecond, size_t wanted, Clock::time_point now, Clock::time_point& retryAt);
    /// Takes what was actually sent out of the bucket.
    void spend(size_t bytes) { tokens_ -= static_cast<double>(bytes); }

private:
    double tokens_ = 0;
    Clock::time_point refilled_{};
    bool started_ = false;
};

}  // namespace sim
