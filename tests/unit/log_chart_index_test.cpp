// The chart's column values against a plain walk over the records, the way
// the chart's columns are defined, on random logs and windows.
#include "log_chart_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "log_chart_reference.h"

namespace {

using namespace chart_reference;

// Mostly one-second steps, with repeated stamps, pauses up to and past 60 s,
// occasional NaN values and states of charge of 101 and 255.
std::vector<LogRecord> randomLog(std::mt19937& random, size_t count, bool second) {
    std::vector<uint32_t> const steps = {1, 1, 1, 1, 1, 1, 0, 2, 7, 60, 61, 500};
    std::uniform_real_distribution<float> value(-50, 50);
    std::vector<LogRecord> records;
    uint32_t time = 1700000000;
    for (size_t i = 0; i < count; ++i) {
        time += steps[random() % steps.size()];
        auto maybeNaN = [&](float v) { return random() % 200 == 0 ? kNaN : v; };
        uint8_t const soc = random() % 30 == 0 ? (random() % 2 ? 255 : 101) : static_cast<uint8_t>(random() % 101);
        records.push_back({time, maybeNaN(value(random)), second ? maybeNaN(value(random)) : kNaN,
                           maybeNaN(value(random)), maybeNaN(value(random)), maybeNaN(value(random)), soc, 1});
    }
    return records;
}

void expectNear(Columns const& actual, Columns const& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t q = 0; q < expected.size(); ++q) {
        ASSERT_EQ(actual[q].size(), expected[q].size());
        for (size_t k = 0; k < expected[q].size(); ++k) {
            float const a = actual[q][k], e = expected[q][k];
            ASSERT_EQ(std::isnan(a), std::isnan(e)) << "trace " << q << " column " << k;
            if (!std::isnan(e)) {
                ASSERT_NEAR(a, e, 1e-5 * std::max(1.0f, std::fabs(e))) << q << " " << k;
            }
        }
    }
}

}  // namespace

TEST(LogChartIndex, AveragesAndExtremesEqualTheWalk) {
    std::mt19937 random(7);
    for (bool second : {true, false}) {
        for (size_t count : {0, 1, 2, 300, 5000}) {
            auto const records = randomLog(random, count, second);
            LogChartIndex const index(records, second);
            ASSERT_EQ(index.traceCount(), second ? 6u : 5u);
            uint64_t const first = count ? records.front().time * kMicros : 0;
            uint64_t const last = count ? records.back().time * kMicros : 1000 * kMicros;
            for (int window = 0; window < 40; ++window) {
                std::uniform_int_distribution<uint64_t> edge(first - 900 * kMicros, last + 900 * kMicros);
                uint64_t start = edge(random), end = edge(random);
                if (window % 4 == 0) end = start + random() % (100 * kMicros);           // a few records, or none
                if (window % 8 == 1) std::tie(start, end) = std::make_pair(end, start);  // inverted or empty
                size_t const columns = std::vector<size_t>{1, 3, 200, 1920, 20000}[random() % 5];
                SCOPED_TRACE(testing::Message()
                             << second << " " << count << " [" << start << ", " << end << ") / " << columns);
                Columns averages, lows, highs, lowsWalked, highsWalked;
                index.averages(start, end, columns, averages);
                expectNear(averages, walkAverages(records, second, start, end, columns));
                index.extremes(start, end, columns, lows, highs);
                walkExtremes(records, second, start, end, columns, lowsWalked, highsWalked);
                expectNear(lows, lowsWalked);
                expectNear(highs, highsWalked);
            }
        }
    }
}

// Ten seconds of records, a pause of three minutes, ten more: the columns of the pause are empty.
TEST(LogChartIndex, APauseOverAMinuteLeavesItsColumnsEmpty) {
    std::vector<LogRecord> records;
    for (uint32_t t : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 190, 191, 192, 193, 194, 195, 196, 197, 198, 199, 200})
        records.push_back({t, 12, 13, 1, 12, 20, 50, 1});
    LogChartIndex const index(records, true);
    Columns averages;
    index.averages(0, 200 * kMicros, 20, averages);
    for (size_t k = 0; k < 20; ++k) EXPECT_EQ(std::isnan(averages[0][k]), k >= 1 && k <= 18) << k;
    EXPECT_FLOAT_EQ(averages[5][0], 50);
}
