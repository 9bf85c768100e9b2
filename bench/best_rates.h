#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

// Timing shared by the benchmarks that set a measurement beside its baselines.

namespace bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Runs the operation `count` times.
using Batch = std::function<void(size_t)>;

/// Operations per second of each batch. Each batch size is grown until one
/// batch takes about `seconds`; then the batches run in turn for `rounds`
/// rounds and the best round of each counts: the machine is shared, the best
/// round is the one least disturbed, and taking turns lets a measurement and
/// its baseline see the same moments of the machine.
inline std::vector<double> bestRates(std::vector<Batch> const& batches, double seconds, int rounds) {
    std::vector<size_t> counts;
    for (Batch const& batch : batches) {
        size_t count = 1;
        double elapsed = 0;
        for (;;) {
            auto const start = Clock::now();
            batch(count);
            elapsed = secondsSince(start);
            if (elapsed >= seconds / 8) break;
            count *= 4;
        }
        counts.push_back(std::max<size_t>(1, static_cast<size_t>(static_cast<double>(count) * seconds / elapsed)));
    }
    std::vector<double> best(batches.size(), 0);
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < batches.size(); ++i) {
            auto const start = Clock::now();
            batches[i](counts[i]);
            best[i] = std::max(best[i], static_cast<double>(counts[i]) / secondsSince(start));
        }
    }
    return best;
}

}  // namespace bench
