// The chart's columns as they are defined, walked over the records column by
// column: the reference the column index is held to by its tests and beside
// which chart_bench times it.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "log_record.h"

namespace chart_reference {

using Columns = std::vector<std::vector<float>>;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr uint64_t kMicros = 1000000;

/// The values of a record in trace order, into `v`; returns how many.
inline size_t quantities(LogRecord const& r, bool second, double* v) {
    size_t n = 0;
    v[n++] = r.voltage1;
    if (second) v[n++] = r.voltage2;
    for (double value :
         {double{r.current}, double{r.power}, double{r.temperature}, static_cast<double>(r.stateOfCharge)})
        v[n++] = value;
    return n;
}

inline uint64_t columnEdge(uint64_t start, uint64_t end, size_t k, size_t n) {
    return start + static_cast<uint64_t>(static_cast<unsigned __int128>(end - start) * k / n);
}

// Each column walks the pairs from the last record before its start and
// integrates the straight lines over their overlap with it.
inline Columns walkAverages(std::vector<LogRecord> const& records, bool second, uint64_t start, uint64_t end,
                            size_t n) {
    size_t const traces = second ? 6 : 5;
    Columns out(traces, std::vector<float>(n, kNaN));
    if (records.empty() || start >= end) return out;
    for (size_t k = 0; k < n; ++k) {
        uint64_t const from = columnEdge(start, end, k, n), to = columnEdge(start, end, k + 1, n);
        auto const after = std::partition_point(records.begin(), records.end(),
                                                [from](LogRecord const& r) { return r.time * kMicros < from; });
        size_t i = after == records.begin() ? 0 : static_cast<size_t>(after - records.begin()) - 1;
        double integral[6] = {};
        double covered = 0;
        for (; i + 1 < records.size() && records[i].time * kMicros < to; ++i) {
            double const ta = records[i].time * 1e6, tb = records[i + 1].time * 1e6;
            if (tb - ta < 1 || tb - ta > 60e6) continue;
            double const lo = std::max(ta, static_cast<double>(from)), hi = std::min(tb, static_cast<double>(to));
            if (hi <= lo) continue;
            double a[6], b[6];
            quantities(records[i], second, a);
            quantities(records[i + 1], second, b);
            for (size_t q = 0; q < traces; ++q) {
                double const vlo = a[q] + (b[q] - a[q]) * (lo - ta) / (tb - ta);
                double const vhi = a[q] + (b[q] - a[q]) * (hi - ta) / (tb - ta);
                integral[q] += (hi - lo) * (vlo + vhi) / 2;
            }
            covered += hi - lo;
        }
        if (covered > 0)
            for (size_t q = 0; q < traces; ++q) out[q][k] = static_cast<float>(integral[q] / covered);
    }
    return out;
}

/// Each column's lowest and highest value of the records in it, in one pass.
inline void walkExtremes(std::vector<LogRecord> const& records, bool second, uint64_t start, uint64_t end, size_t n,
                         Columns& lows, Columns& highs) {
    size_t const traces = second ? 6 : 5;
    lows.assign(traces, std::vector<float>(n, kNaN));
    highs = lows;
    if (start >= end) return;
    auto r = std::partition_point(records.begin(), records.end(),
                                  [start](LogRecord const& x) { return x.time * kMicros < start; });
    for (size_t k = 0; k < n; ++k) {
        uint64_t const to = columnEdge(start, end, k + 1, n);
        for (; r != records.end() && r->time * kMicros < to; ++r) {
            double v[6];
            quantities(*r, second, v);
            for (size_t q = 0; q < traces; ++q) {
                lows[q][k] = std::fmin(lows[q][k], static_cast<float>(v[q]));
                highs[q][k] = std::fmax(highs[q][k], static_cast<float>(v[q]));
            }
        }
    }
}

}  // namespace chart_reference
