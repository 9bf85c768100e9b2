#pragma once

#include <limits>
#include <span>
#include <vector>

// The plot's traces and bands are painted as one run of rows per pixel
// column: a paint then costs the same per column whether the traces are calm
// or jagged, and a year of jagged columns paints as fast as a quiet day.

/// The rows (inclusive, top ≤ bottom) that a trace or band covers in one
/// column of the plot, counted from the plot's first column.
struct ColumnSpan {
    int column = 0;
    int top = 0;
    int bottom = 0;
    bool operator==(ColumnSpan const&) const = default;
};

/// Stands for a column without a value: the trace breaks there.
inline constexpr int kNoRow = std::numeric_limits<int>::min();

/// The spans of a 2 px trace through `rows` (one row per column, kNoRow for
/// none): each column reaches from its own row half-way to each neighbour's,
/// so consecutive columns join like a drawn line, and a line at row y covers
/// rows y − 1 and y.
std::vector<ColumnSpan> traceSpans(std::span<int const> rows);
