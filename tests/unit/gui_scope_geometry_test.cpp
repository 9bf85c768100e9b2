// The scope display's arithmetic: where the plot lies, how a scale's
// resolution walks the 1-2-5 series within its limits, where a value lands,
// and how zoom and pan move the time window and where they stop.
#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "scope_layout.h"
#include "scope_scale.h"
#include "scope_time.h"

namespace {

// 500 × 400 with one scale: 7 × 5 divisions.
ScopeLayout const kPlot = scopeLayout(500, 400, 1);

TEST(ScopeGeometryTest, PlotHoldsWholeDivisionsOnly) {
    std::tuple<int, int, size_t, ScopeLayout> const cases[] = {
        {500, 400, 1, {25, 326, 60, 481, 7, 5}},
        {79, 109, 0, {25, 26, 10, 11, 0, 0}},
        {80, 110, 0, {25, 86, 10, 71, 1, 1}},
        {100, 40, 2, {25, 26, 110, 111, 0, 0}},
    };
    for (auto const& [width, height, scales, layout] : cases) {
        SCOPED_TRACE(width);
        EXPECT_EQ(scopeLayout(width, height, scales), layout);
    }
    EXPECT_EQ(scopeSpan(kPlot, 2'000'000), 14'000'000u);
    EXPECT_EQ(scopeSpan(scopeLayout(79, 400, 0), 2'000'000), 0u);
    EXPECT_EQ(drawnColumns(kPlot, 1000), 421u);
    EXPECT_EQ(drawnColumns(kPlot, 10), 10u);
}

TEST(ScopeGeometryTest, PointsFindScalesAndStayInThePlot) {
    std::tuple<int, std::optional<size_t>> const scales[] = {{-50, std::nullopt}, {10, 0}, {59, 0}, {60, 1}, {109, 1},
                                                             {110, std::nullopt}};
    for (auto const& [x, index] : scales) EXPECT_EQ(scaleIndexAt(x, 2), index) << x;
    EXPECT_EQ(clampToPlot({0, 0}, kPlot), (ScopePoint{60, 25}));
    EXPECT_EQ(clampToPlot({1000, 1000}, kPlot), (ScopePoint{480, 325}));
    EXPECT_EQ(clampToPlot({100, 200}, kPlot), (ScopePoint{100, 200}));
    EXPECT_EQ(firstCursorX(kPlot), 200);
    EXPECT_EQ(secondCursorX(kPlot), 340);
}

TEST(ScopeGeometryTest, ScalesStartAtTheNearestStepWithinTheirLimits) {
    std::tuple<float, float, float, ScaleResolution> const cases[] = {
        {5, 0.005f, 50, {5, 0, 5}},    {10, 0.05f, 100, {1, 1, 10}}, {1, 5, 20, {5, 0, 5}},
        {10, 10, 50, {1, 1, 10}},      {3, 0.1f, 100, {2, 0, 2}},    {1.5f, 0.1f, 100, {1, 0, 1}},
        {3.5f, 0.1f, 100, {2, 0, 2}},  {7.5f, 0.1f, 100, {5, 0, 5}}, {0.0035f, 0, 1, {2, -3, 0.002f}},
        {2500, 0, 1000, {1, 3, 1000}},
    };
    for (auto const& [requested, minimum, maximum, expected] : cases) {
        SCOPED_TRACE(requested);
        EXPECT_EQ(initialResolution(requested, minimum, maximum), expected);
    }
}

TEST(ScopeGeometryTest, ResolutionWalksTheSeriesAndStopsAtItsLimits) {
    std::tuple<ScaleResolution, bool, std::optional<ScaleResolution>> const cases[] = {
        {{1, 0, 1}, true, ScaleResolution{5, -1, 0.5f}},
        {{5, -1, 0.5f}, true, ScaleResolution{2, -1, 0.2f}},
        {{2, -1, 0.2f}, true, ScaleResolution{1, -1, 0.1f}},
        {{1, 0, 1}, false, ScaleResolution{2, 0, 2}},
        {{2, 0, 2}, false, ScaleResolution{5, 0, 5}},
        {{5, 0, 5}, false, ScaleResolution{1, 1, 10}},
        {{5, -3, 0.005f}, true, std::nullopt},
        {{5, 1, 50}, false, std::nullopt},
    };
    for (auto const& [current, finer, next] : cases) {
        SCOPED_TRACE(current.resolution);
        EXPECT_EQ(steppedResolution(current, finer, 0.005f, 50), next);
    }
}

TEST(ScopeGeometryTest, ValuesMapToRowsAboveTheScaleBase) {
    EXPECT_EQ(scaleBase(0, false, 5, 1), 0);
    EXPECT_EQ(scaleBase(0, true, 5, 10), -20);
    EXPECT_EQ(scaleBase(1, true, 6, 0.5f), -1);
    std::tuple<float, float, float, int> const cases[] = {
        {3, 0, 1, 146},  {0, 0, 1, 326},       {5, 0, 1, 25},
        {-1, 0, 1, 386}, {1, 0.5f, 0.5f, 266}, {1e30f, 0, 1, 326 - 1'000'000},
    };
    for (auto const& [value, base, resolution, row] : cases) {
        SCOPED_TRACE(value);
        EXPECT_EQ(valueRow(value, base, resolution, kPlot), row);
    }
    EXPECT_EQ(valueRow(3, 0, 1, scopeLayout(79, 109, 0)), 26);
}

TEST(ScopeGeometryTest, StepsStayInTheirTable) {
    EXPECT_EQ(clampedStepIndex(20, 14), 13u);
    EXPECT_EQ(clampedStepIndex(3, 14), 3u);
    std::tuple<size_t, int, size_t> const wheel[] = {{5, 1, 4}, {5, 3, 4}, {5, -2, 6},
                                                     {5, 0, 5}, {0, 1, 0}, {13, -1, 13}};
    for (auto const& [index, ticks, next] : wheel) EXPECT_EQ(wheelStepIndex(index, 14, ticks), next) << ticks;
}

TEST(ScopeGeometryTest, PansMoveByPixelsAndStopAtTheirLimits) {
    std::tuple<uint64_t, unsigned, uint64_t> const amounts[] = {
        {60'000'000, 0, 60'000'000}, {60'000'000, 1, 1'000'000}, {60'000'000, 30, 30'000'000}, {30, 1, 1}};
    for (auto const& [step, pixels, amount] : amounts) EXPECT_EQ(panAmount(step, pixels), amount) << pixels;
    EXPECT_EQ(pannedStart(10, 20, false), 10u);
    EXPECT_EQ(pannedStart(30, 20, false), 10u);
    EXPECT_EQ(pannedStart(10, 20, true), 30u);
    // step 10, span 70, data from 100 to 1000
    std::tuple<uint64_t, int, uint64_t> const wheel[] = {
        {930, 1, 940}, {935, 1, 940}, {940, 1, 940}, {100, -1, 90}, {90, -1, 90}, {500, 0, 500},
    };
    for (auto const& [start, ticks, next] : wheel)
        EXPECT_EQ(wheelPannedStart(start, 70, 10, 100, 1000, ticks), next) << start;
    EXPECT_EQ(wheelPannedStart(3, 70, 10, 5, 1000, -1), 0u);
    EXPECT_EQ(newestStart(100, 30), 70u);
    EXPECT_EQ(newestStart(10, 30), 0u);
}

TEST(ScopeGeometryTest, ZoomKeepsTheTimeUnderThePointer) {
    std::tuple<uint64_t, uint64_t, uint64_t, int, uint64_t> const cases[] = {
        {1'000'000'000, 14'000'000, 1'000'000, 270, 1'003'000'000},
        {1'000'000'000, 14'000'000, 1'000'000, 60, 1'000'000'000},
        {0, 7'000'000, 2'000'000, 480, 0},
    };
    for (auto const& [start, oldSpan, step, x, zoomed] : cases)
        EXPECT_EQ(zoomedStart(start, oldSpan, step, x, kPlot), zoomed) << x;
}

}  // namespace
