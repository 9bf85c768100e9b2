// The rows a trace covers in each column: a line two pixels thick that joins
// its neighbours half-way and breaks where a column has no value.
#include <gtest/gtest.h>

#include <vector>

#include "scope_spans.h"

namespace {

TEST(ScopeSpansTest, ColumnsReachHalfWayToTheirNeighbours) {
    struct Case {
        char const* what;
        std::vector<int> rows;
        std::vector<ColumnSpan> spans;
    };
    Case const cases[] = {
        {"flat", {10, 10, 10}, {{0, 9, 10}, {1, 9, 10}, {2, 9, 10}}},
        {"a step down", {10, 20}, {{0, 9, 15}, {1, 14, 20}}},
        {"a step up by one", {11, 10}, {{0, 10, 11}, {1, 9, 10}}},
        {"a peak", {20, 10, 20}, {{0, 14, 20}, {1, 9, 15}, {2, 14, 20}}},
        {"a gap breaks the line", {10, kNoRow, 30}, {{0, 9, 10}, {2, 29, 30}}},
        {"a lone point", {kNoRow, 5, kNoRow}, {{1, 4, 5}}},
        {"nothing", {}, {}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(traceSpans(c.rows), c.spans);
    }
}

}  // namespace
