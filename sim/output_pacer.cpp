#include "output_pacer.h"

#include <algorithm>

namespace sim {

namespace {

constexpr double kBurstSeconds = 0.05;

}  // namespace

size_t OutputPacer::allowance(uint64_t bytesPerSecond, size_t wanted, Clock::time_point now,
                              Clock::time_point& retryAt) {
    double const rate = static_cast<double>(bytesPerSecond);
    double const burst = std::max(1.0, rate * kBurstSeconds);
    if (started_)
        tokens_ = std::min(burst, tokens_ + rate * std::chrono::duration<double>(now - refilled_).count());
    else
        tokens_ = burst;  // a link that was idle has its whole burst ready
    started_ = true;
    refilled_ = now;
    if (tokens_ >= 1) return std::min(wanted, static_cast<size_t>(tokens_));
    retryAt = now + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>((1 - tokens_) / rate));
    return 0;
}

}  // namespace sim
