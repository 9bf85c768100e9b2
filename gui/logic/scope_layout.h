#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

// Where the scope display puts its plot: every division is a 60 × 60 pixel
// square, each vertical scale takes a 50 px column left of the plot after a
// 10 px margin, and the time labels and the time-scale caption fill the 50 px
// under it.

inline constexpr int kScopeDivisionPixels = 60;
inline constexpr int kScopeScaleColumnPixels = 50;
inline constexpr int kScopeMarginPixels = 10;

/// The plot's edges in pixels and how many divisions fit between them.
struct ScopeLayout {
    int top = 25;
    int bottom = 26;
    int left = kScopeMarginPixels;
    int right = kScopeMarginPixels + 1;
    int horizontalDivisions = 0;
    int verticalDivisions = 0;
    bool operator==(ScopeLayout const&) const = default;
};

/// The plot in a client area of `width` × `height` with `scaleCount` scales on
/// its left. A window too small for one division gets none (never fewer), so
/// that its plot is empty rather than inside out.
ScopeLayout scopeLayout(int width, int height, std::size_t scaleCount);

/// The time the plot shows: its horizontal divisions × the time per division.
uint64_t scopeSpan(ScopeLayout const& layout, uint64_t timePerDivision);

/// How many pixel columns the plot has, the number of samples a trace holds.
std::size_t scopeColumns(ScopeLayout const& layout);

/// How many columns of a trace with `sampleCount` samples are drawn.
std::size_t drawnColumns(ScopeLayout const& layout, std::size_t sampleCount);

/// The x of the axis of the scale at `index` (0 = leftmost).
int scaleAxisX(std::size_t index);

/// The scale whose column holds `x`, if any of the `scaleCount` does.
std::optional<std::size_t> scaleIndexAt(int x, std::size_t scaleCount);

struct ScopePoint {
    int x = 0;
    int y = 0;
    bool operator==(ScopePoint const&) const = default;
};

/// `point` moved into the plot: x into [left, right − 1], y into [top, bottom − 1].
ScopePoint clampToPlot(ScopePoint point, ScopeLayout const& layout);

/// Where the cursors stand when they are switched on: one and two thirds
/// across the plot.
int firstCursorX(ScopeLayout const& layout);
int secondCursorX(ScopeLayout const& layout);
