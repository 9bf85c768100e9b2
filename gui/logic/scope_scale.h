#pragma once

#include <cstdint>
#include <optional>

#include "scope_layout.h"

// The arithmetic of a vertical scale of the scope display: its resolution
// walks the 1-2-5 series (mantissa × 10^exponent units per division), and a
// value maps to a pixel row of the plot.

struct ScaleResolution {
    uint16_t mantissa = 1;
    int16_t exponent = 0;
    float resolution = 1;
    bool operator==(ScaleResolution const&) const = default;
};

/// Whether `mantissa` is one of 1, 2 and 5.
bool isSeriesMantissa(uint16_t mantissa);

/// The resolution a scale starts with: `requested` clamped into [minimum,
/// maximum], then the nearest member of the series with the same power of
/// ten (on a tie the smaller mantissa).
ScaleResolution initialResolution(float requested, float minimum, float maximum);

/// The next resolution finer (2 → 1, 5 → 2, 1 → 5 a decade down) or coarser
/// (1 → 2, 2 → 5, 5 → 1 a decade up), or nothing when it would leave
/// [minimum, maximum]. `current.mantissa` must be one of 1, 2 and 5.
std::optional<ScaleResolution> steppedResolution(ScaleResolution current, bool finer, float minimum, float maximum);

/// The value at the bottom of the plot: the scale's offset in divisions,
/// less half the divisions when zero sits in the middle.
float scaleBase(int32_t offset, bool centred, int verticalDivisions, float resolution);

/// The row of `value` on a scale with `base` and `resolution`: bottom minus
/// the value's share of the plot's height, truncated; `value` is not NaN. Values far outside
/// the plot stop a million rows beyond it, which clipping hides all the same.
int valueRow(float value, float base, float resolution, ScopeLayout const& layout);
