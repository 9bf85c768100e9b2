#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "log_record.h"

/// Column values of a data log for the chart, from an index built once.
///
/// The averages come from prefix sums of each pair's trapezoid area, kept per
/// block of records, plus the pairs at the column edges taken exactly; the
/// extremes from a min/max pyramid over the same blocks. A column then costs a
/// few look-ups and at most a block's worth of pairs, whatever it spans, and
/// the index holds about one byte per record (docs/chart-data.md).
class LogChartIndex {
public:
    /// Indexes `records` (ascending time). They must outlive the index and stay unchanged.
    LogChartIndex(std::vector<LogRecord> const& records, bool secondVoltage);

    /// 6 with a second voltage, else 5; trace order voltage 1, [voltage 2], current, power, temperature, state of
    /// charge.
    size_t traceCount() const { return traces_; }

    /// Resizes `samples` to traceCount() lists of `columns` values each and fills them: per column
    /// [start + k(end-start)/n, start + (k+1)(end-start)/n), the time-weighted average of the straight lines
    /// between consecutive records over the part of the column they cover; pairs more than 60 s apart or 0 s
    /// apart are left out; NaN when nothing is covered, and NaN for a quantity when a pair that covers part of
    /// the column carries NaN in it. Times in microseconds.
    void averages(uint64_t startUs, uint64_t endUs, size_t columns, std::vector<std::vector<float>>& samples) const;

    /// Same columns: the lowest and highest recorded value (NaN values skipped) of the records whose time lies
    /// in the column; NaN when none.
    void extremes(uint64_t startUs, uint64_t endUs, size_t columns, std::vector<std::vector<float>>& lows,
                  std::vector<std::vector<float>>& highs) const;

    /// Bytes the index holds (not counting the records).
    size_t memoryBytes() const;

private:
    static constexpr size_t kMaxTraces = 6;

    /// Sums of the contributing pairs [first, last) (pair i joins records i and i + 1).
    struct PairSums {
        double area[kMaxTraces] = {};
        double covered = 0;  // microseconds
        uint32_t nans[kMaxTraces] = {};
    };

    void values(LogRecord const& r, float* out) const;
    void addPairs(size_t first, size_t last, PairSums& sums) const;
    void addPartialPair(size_t pair, uint64_t fromUs, uint64_t toUs, PairSums& sums) const;
    /// Sums of the pairs [0, pair), from the nearer block boundary.
    PairSums prefix(size_t pair) const;
    /// The first record at or after `timeUs`, known to be at or after `from`.
    size_t firstAtOrAfter(uint64_t timeUs, size_t from = 0) const;
    void extremesOf(size_t first, size_t last, float* low, float* high) const;

    std::vector<LogRecord> const& records_;
    size_t traces_;
    bool secondVoltage_;
    size_t pairCount_;
    // Per block boundary b: the sums of pairs [0, b * kBlock).
    std::vector<double> blockArea_;    // (traces_ + 1) per boundary, the last one the covered time
    std::vector<uint32_t> blockNans_;  // traces_ per boundary
    std::vector<uint32_t> blockTime_;  // the first record's time of each block, to find a time fast
    // Level 0 holds per kExtremeBlock records the lowest and highest value of each trace; each level above
    // combines kFanOut nodes of the one below.
    std::vector<std::vector<float>> lows_;
    std::vector<std::vector<float>> highs_;
};
