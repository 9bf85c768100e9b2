#include "scope_scale.h"

#include <algorithm>
#include <cmath>

namespace {

// In double, so that 5 × 10^−3 is the float nearest 0.005, as a limit written
// 0.005 is.
float seriesValue(uint16_t mantissa, int exponent) { return static_cast<float>(mantissa * std::pow(10.0, exponent)); }

}  // namespace

bool isSeriesMantissa(uint16_t mantissa) { return mantissa == 1 || mantissa == 2 || mantissa == 5; }

ScaleResolution initialResolution(float requested, float minimum, float maximum) {
    float normalised = std::clamp(requested, minimum, maximum);
    int exponent = 0;
    // A scale has a positive resolution; anything else takes the lowest step.
    if (!(normalised > 0) || !std::isfinite(normalised)) normalised = 1;
    while (normalised < 1) normalised *= 10, --exponent;
    while (normalised >= 10) normalised /= 10, ++exponent;
    uint16_t mantissa = 1;
    for (uint16_t candidate : {2, 5})
        if (std::fabs(normalised - candidate) < std::fabs(normalised - mantissa)) mantissa = candidate;
    return {mantissa, static_cast<int16_t>(exponent), seriesValue(mantissa, exponent)};
}

std::optional<ScaleResolution> steppedResolution(ScaleResolution current, bool finer, float minimum, float maximum) {
    ScaleResolution next = current;
    if (finer) {
        next.mantissa = current.mantissa == 1 ? 5 : current.mantissa == 2 ? 1 : 2;
        if (current.mantissa == 1) --next.exponent;
    } else {
        next.mantissa = current.mantissa == 1 ? 2 : current.mantissa == 2 ? 5 : 1;
        if (current.mantissa == 5) ++next.exponent;
    }
    next.resolution = seriesValue(next.mantissa, next.exponent);
    if (next.resolution < minimum || next.resolution > maximum) return std::nullopt;
    return next;
}

float scaleBase(int32_t offset, bool centred, int verticalDivisions, float resolution) {
    return static_cast<float>(offset - (centred ? verticalDivisions / 2 : 0)) * resolution;
}

int valueRow(float value, float base, float resolution, ScopeLayout const& layout) {
    int const height = layout.bottom - layout.top;
    float const fullRange = static_cast<float>(height / kScopeDivisionPixels) * resolution;
    if (fullRange == 0) return layout.bottom;
    float const rows = std::trunc((value - base) / fullRange * static_cast<float>(height));
    return layout.bottom - static_cast<int>(std::clamp(rows, -1e6f, 1e6f));
}
