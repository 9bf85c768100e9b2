#include "log_chart_index.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// Records per block: the prefix sums and the lowest pyramid level hold one
// entry per block. 128 keeps the index near one byte per record and a column
// edge below 64 pairs of arithmetic.
constexpr size_t kBlock = 128;
// Records under one node of the extremes pyramid's lowest level. A column
// scans its edges record by record, up to a node on each side: finer than a
// block, as the extremes are what a long span's paint mostly waits for.
constexpr size_t kExtremeBlock = 32;
// Nodes of one pyramid level combined into one node of the level above.
constexpr size_t kFanOut = 8;
// A longer pause between two records is a hole in the log: the line is not drawn across it.
constexpr uint32_t kMaxPairSeconds = 60;
constexpr uint64_t kMicrosPerSecond = 1000000;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

uint64_t micros(uint32_t seconds) { return uint64_t{seconds} * kMicrosPerSecond; }

bool contributes(LogRecord const& a, LogRecord const& b) {
    return b.time > a.time && b.time - a.time <= kMaxPairSeconds;
}

// std::fmin and std::fmax, NaN skipped the same way, but inlined: the library
// calls cost a third of building the index.
float minSkippingNaN(float a, float b) { return b < a || std::isnan(a) ? b : a; }
float maxSkippingNaN(float a, float b) { return b > a || std::isnan(a) ? b : a; }

// Column k of n over [start, end), with the numerator formed without overflow.
uint64_t columnStart(uint64_t start, uint64_t span, size_t k, size_t n) {
    return start + static_cast<uint64_t>(static_cast<unsigned __int128>(span) * k / n);
}

}  // namespace

LogChartIndex::LogChartIndex(std::vector<LogRecord> const& records, bool secondVoltage)
    : records_(records),
      traces_(secondVoltage ? 6 : 5),
      secondVoltage_(secondVoltage),
      pairCount_(records.empty() ? 0 : records.size() - 1) {
    size_t const stride = traces_ + 1;
    size_t const boundaries = pairCount_ / kBlock + 1;
    blockArea_.reserve(boundaries * stride);
    blockNans_.reserve(boundaries * traces_);
    size_t const blocks = (records_.size() + kBlock - 1) / kBlock;
    blockTime_.reserve(blocks);
    lows_.emplace_back();
    highs_.emplace_back();
    size_t const extremeBlocks = (records_.size() + kExtremeBlock - 1) / kExtremeBlock;
    lows_[0].reserve(extremeBlocks * traces_);
    highs_[0].reserve(extremeBlocks * traces_);

    double area[kMaxTraces] = {};
    double covered = 0;
    uint32_t nans[kMaxTraces] = {};
    float previous[kMaxTraces];
    float current[kMaxTraces];
    float low[kMaxTraces];
    float high[kMaxTraces];
    for (size_t i = 0; i < records_.size(); ++i) {
        if (i % kExtremeBlock == 0) {
            if (i > 0) {
                lows_[0].insert(lows_[0].end(), low, low + traces_);
                highs_[0].insert(highs_[0].end(), high, high + traces_);
            }
            std::fill(low, low + traces_, kNaN);
            std::fill(high, high + traces_, kNaN);
        }
        if (i % kBlock == 0) blockTime_.push_back(records_[i].time);
        // Pair i - 1 ends here; boundary b counts the pairs before record b * kBlock.
        values(records_[i], current);
        if (i > 0 && contributes(records_[i - 1], records_[i])) {
            double const length = static_cast<double>(micros(records_[i].time) - micros(records_[i - 1].time));
            covered += length;
            for (size_t q = 0; q < traces_; ++q) {
                double const a = length * (static_cast<double>(previous[q]) + current[q]) / 2;
                if (std::isnan(a))
                    ++nans[q];
                else
                    area[q] += a;
            }
        }
        if (i % kBlock == 0) {
            blockArea_.insert(blockArea_.end(), area, area + traces_);
            blockArea_.push_back(covered);
            blockNans_.insert(blockNans_.end(), nans, nans + traces_);
        }
        for (size_t q = 0; q < traces_; ++q) {
            low[q] = minSkippingNaN(low[q], current[q]);
            high[q] = maxSkippingNaN(high[q], current[q]);
        }
        std::copy(current, current + traces_, previous);
    }
    if (!records_.empty()) {
        lows_[0].insert(lows_[0].end(), low, low + traces_);
        highs_[0].insert(highs_[0].end(), high, high + traces_);
    }
    while (lows_.back().size() > traces_ * kFanOut) {
        std::vector<float> const& lower = lows_.back();
        std::vector<float> const& higher = highs_.back();
        size_t const nodes = lower.size() / traces_;
        std::vector<float> lows((nodes + kFanOut - 1) / kFanOut * traces_, kNaN);
        std::vector<float> highs(lows.size(), kNaN);
        for (size_t node = 0; node < nodes; ++node) {
            for (size_t q = 0; q < traces_; ++q) {
                size_t const to = node / kFanOut * traces_ + q;
                lows[to] = minSkippingNaN(lows[to], lower[node * traces_ + q]);
                highs[to] = maxSkippingNaN(highs[to], higher[node * traces_ + q]);
            }
        }
        lows_.push_back(std::move(lows));
        highs_.push_back(std::move(highs));
    }
}

void LogChartIndex::values(LogRecord const& r, float* out) const {
    *out++ = r.voltage1;
    if (secondVoltage_) *out++ = r.voltage2;
    *out++ = r.current;
    *out++ = r.power;
    *out++ = r.temperature;
    *out = r.stateOfCharge;
}

void LogChartIndex::addPairs(size_t first, size_t last, PairSums& sums) const {
    float a[kMaxTraces];
    float b[kMaxTraces];
    if (first < last) values(records_[first], a);
    for (size_t i = first; i < last; ++i) {
        values(records_[i + 1], b);
        if (contributes(records_[i], records_[i + 1])) {
            double const length = static_cast<double>(micros(records_[i + 1].time) - micros(records_[i].time));
            sums.covered += length;
            for (size_t q = 0; q < traces_; ++q) {
                double const area = length * (static_cast<double>(a[q]) + b[q]) / 2;
                if (std::isnan(area))
                    ++sums.nans[q];
                else
                    sums.area[q] += area;
            }
        }
        std::copy(b, b + traces_, a);
    }
}

void LogChartIndex::addPartialPair(size_t pair, uint64_t fromUs, uint64_t toUs, PairSums& sums) const {
    LogRecord const& a = records_[pair];
    LogRecord const& b = records_[pair + 1];
    if (toUs <= fromUs || !contributes(a, b)) return;
    float va[kMaxTraces];
    float vb[kMaxTraces];
    values(a, va);
    values(b, vb);
    double const start = static_cast<double>(micros(a.time));
    double const length = static_cast<double>(micros(b.time)) - start;
    double const from = (static_cast<double>(fromUs) - start) / length;
    double const to = (static_cast<double>(toUs) - start) / length;
    double const covered = static_cast<double>(toUs - fromUs);
    sums.covered += covered;
    for (size_t q = 0; q < traces_; ++q) {
        double const slope = static_cast<double>(vb[q]) - va[q];
        double const area = covered * ((va[q] + slope * from) + (va[q] + slope * to)) / 2;
        if (std::isnan(area))
            ++sums.nans[q];
        else
            sums.area[q] += area;
    }
}

LogChartIndex::PairSums LogChartIndex::prefix(size_t pair) const {
    PairSums sums;
    size_t block = pair / kBlock;
    bool const fromAbove = pair % kBlock > kBlock / 2 && (block + 1) * kBlock <= pairCount_;
    if (fromAbove) ++block;
    size_t const stride = traces_ + 1;
    for (size_t q = 0; q < traces_; ++q) {
        sums.area[q] = blockArea_[block * stride + q];
        sums.nans[q] = blockNans_[block * traces_ + q];
    }
    sums.covered = blockArea_[block * stride + traces_];
    if (!fromAbove) {
        addPairs(block * kBlock, pair, sums);
        return sums;
    }
    PairSums above;
    addPairs(pair, block * kBlock, above);
    for (size_t q = 0; q < traces_; ++q) {
        sums.area[q] -= above.area[q];
        sums.nans[q] -= above.nans[q];
    }
    sums.covered -= above.covered;
    return sums;
}

size_t LogChartIndex::firstAtOrAfter(uint64_t timeUs, size_t from) const {
    uint64_t const seconds = (timeUs + kMicrosPerSecond - 1) / kMicrosPerSecond;
    if (seconds > std::numeric_limits<uint32_t>::max()) return records_.size();
    auto const time = static_cast<uint32_t>(seconds);
    // Columns ask in rising time order: gallop from the block of the last
    // answer rather than search the whole log for each column edge.
    size_t low = std::min(from / kBlock, blockTime_.size());
    size_t high = low;
    for (size_t step = 1; high < blockTime_.size() && blockTime_[high] < time; step *= 2) {
        low = high + 1;
        high = low + step;
    }
    high = std::min(high, blockTime_.size());
    auto const blocks = blockTime_.begin();
    size_t const block = static_cast<size_t>(
        std::lower_bound(blocks + static_cast<std::ptrdiff_t>(low), blocks + static_cast<std::ptrdiff_t>(high), time) -
        blocks);
    if (block == 0) return 0;
    auto const first = records_.begin() + static_cast<std::ptrdiff_t>((block - 1) * kBlock);
    auto const last = records_.begin() + static_cast<std::ptrdiff_t>(std::min(block * kBlock, records_.size()));
    auto const found = std::lower_bound(first, last, time, [](LogRecord const& r, uint32_t t) { return r.time < t; });
    return static_cast<size_t>(found - records_.begin());
}

void LogChartIndex::averages(uint64_t startUs, uint64_t endUs, size_t columns,
                             std::vector<std::vector<float>>& samples) const {
    samples.resize(traces_);
    for (auto& list : samples) list.assign(columns, kNaN);
    if (records_.empty() || startUs >= endUs || columns == 0) return;
    uint64_t const span = endUs - startUs;
    size_t const count = records_.size();

    // Neighbouring columns share an edge, so the prefix at the end of one is
    // one pair away from the prefix at the start of the next.
    size_t cachedPair = std::numeric_limits<size_t>::max();
    PairSums cached;
    auto prefixAt = [&](size_t pair) {
        if (pair == cachedPair + 1) {
            addPairs(cachedPair, pair, cached);
        } else if (pair != cachedPair) {
            cached = prefix(pair);
        }
        cachedPair = pair;
        return cached;
    };

    uint64_t columnEnd = startUs;
    size_t next = firstAtOrAfter(startUs);
    for (size_t k = 0; k < columns; ++k) {
        uint64_t const columnBegin = columnEnd;
        columnEnd = columnStart(startUs, span, k + 1, columns);
        size_t const first = next;  // the first record at or after the column's start
        next = firstAtOrAfter(columnEnd, next);
        if (columnEnd == columnBegin) continue;
        PairSums sums;
        if (first == next) {
            if (first > 0 && first < count) addPartialPair(first - 1, columnBegin, columnEnd, sums);
        } else {
            if (first > 0) addPartialPair(first - 1, columnBegin, micros(records_[first].time), sums);
            if (next < count) addPartialPair(next - 1, micros(records_[next - 1].time), columnEnd, sums);
            size_t const inside = next - 1 - first;
            if (inside <= kBlock / 2) {
                addPairs(first, next - 1, sums);
            } else {
                PairSums const from = prefixAt(first);
                PairSums const to = prefixAt(next - 1);
                for (size_t q = 0; q < traces_; ++q) {
                    sums.area[q] += to.area[q] - from.area[q];
                    sums.nans[q] += to.nans[q] - from.nans[q];
                }
                sums.covered += to.covered - from.covered;
            }
        }
        if (sums.covered <= 0) continue;
        for (size_t q = 0; q < traces_; ++q)
            if (sums.nans[q] == 0) samples[q][k] = static_cast<float>(sums.area[q] / sums.covered);
    }
}

void LogChartIndex::extremesOf(size_t first, size_t last, float* low, float* high) const {
    float v[kMaxTraces];
    auto scanRecords = [&](size_t from, size_t to) {
        for (size_t i = from; i < to; ++i) {
            values(records_[i], v);
            for (size_t q = 0; q < traces_; ++q) {
                low[q] = minSkippingNaN(low[q], v[q]);
                high[q] = maxSkippingNaN(high[q], v[q]);
            }
        }
    };
    auto scanNodes = [&](size_t level, size_t from, size_t to) {
        for (size_t node = from; node < to; ++node) {
            for (size_t q = 0; q < traces_; ++q) {
                low[q] = minSkippingNaN(low[q], lows_[level][node * traces_ + q]);
                high[q] = maxSkippingNaN(high[q], highs_[level][node * traces_ + q]);
            }
        }
    };
    size_t x = (first + kExtremeBlock - 1) / kExtremeBlock;
    size_t y = last / kExtremeBlock;
    if (x >= y) {
        scanRecords(first, last);
        return;
    }
    scanRecords(first, x * kExtremeBlock);
    scanRecords(y * kExtremeBlock, last);
    for (size_t level = 0; x < y; ++level) {
        size_t const up = (x + kFanOut - 1) / kFanOut * kFanOut;
        size_t const down = y / kFanOut * kFanOut;
        if (level + 1 == lows_.size() || up >= down) {
            scanNodes(level, x, y);
            return;
        }
        scanNodes(level, x, up);
        scanNodes(level, down, y);
        x = up / kFanOut;
        y = down / kFanOut;
    }
}

void LogChartIndex::extremes(uint64_t startUs, uint64_t endUs, size_t columns, std::vector<std::vector<float>>& lows,
                             std::vector<std::vector<float>>& highs) const {
    lows.resize(traces_);
    highs.resize(traces_);
    for (auto& list : lows) list.assign(columns, kNaN);
    for (auto& list : highs) list.assign(columns, kNaN);
    if (records_.empty() || startUs >= endUs || columns == 0) return;
    uint64_t const span = endUs - startUs;
    size_t next = firstAtOrAfter(startUs);
    float low[kMaxTraces];
    float high[kMaxTraces];
    for (size_t k = 0; k < columns; ++k) {
        size_t const first = next;
        next = firstAtOrAfter(columnStart(startUs, span, k + 1, columns), next);
        if (first == next) continue;
        std::fill(low, low + traces_, kNaN);
        std::fill(high, high + traces_, kNaN);
        extremesOf(first, next, low, high);
        for (size_t q = 0; q < traces_; ++q) {
            lows[q][k] = low[q];
            highs[q][k] = high[q];
        }
    }
}

size_t LogChartIndex::memoryBytes() const {
    size_t bytes = blockArea_.capacity() * sizeof(double) + blockNans_.capacity() * sizeof(uint32_t) +
                   blockTime_.capacity() * sizeof(uint32_t) + lows_.capacity() * 2 * sizeof(std::vector<float>);
    for (size_t level = 0; level < lows_.size(); ++level)
        bytes += (lows_[level].capacity() + highs_[level].capacity()) * sizeof(float);
    return bytes;
}
