#include "scope_time.h"

#include <algorithm>
#include <cmath>

namespace {

uint64_t roundedProduct(uint64_t span, double fraction) {
    return static_cast<uint64_t>(std::round(static_cast<double>(span) * fraction));
}

}  // namespace

std::size_t clampedStepIndex(std::size_t index, std::size_t count) {
    return count == 0 ? 0 : std::min(index, count - 1);
}

std::size_t steppedIndex(std::size_t index, std::size_t count, bool coarser) {
    if (coarser) return index + 1 < count ? index + 1 : index;
    return index > 0 ? index - 1 : index;
}

std::size_t wheelStepIndex(std::size_t index, std::size_t count, int ticks) {
    if (ticks == 0) return index;
    return steppedIndex(index, count, ticks < 0);
}

uint64_t roundDownToStep(uint64_t time, uint64_t step) { return step == 0 ? time : time - time % step; }

uint64_t panAmount(uint64_t timePerDivision, unsigned pixels) {
    uint64_t const amount = pixels == 0 ? timePerDivision : timePerDivision * pixels / kScopeDivisionPixels;
    return std::max<uint64_t>(amount, 1);
}

uint64_t pannedStart(uint64_t start, uint64_t amount, bool forward) {
    if (forward) return start + amount;
    return start >= amount ? start - amount : start;
}

uint64_t zoomedStart(uint64_t start, uint64_t oldSpan, uint64_t newStep, int x, ScopeLayout const& layout) {
    int const width = layout.horizontalDivisions * kScopeDivisionPixels;
    double const fraction = width == 0 ? 0.0 : static_cast<double>(x - layout.left) / width;
    uint64_t const anchor = start + roundedProduct(oldSpan, fraction);
    uint64_t const before = roundedProduct(scopeSpan(layout, newStep), fraction);
    return roundDownToStep(anchor >= before ? anchor - before : 0, newStep);
}

uint64_t wheelPannedStart(uint64_t start, uint64_t span, uint64_t step, uint64_t minimum, uint64_t maximum, int ticks) {
    if (ticks >= 1) return start + span < maximum + step ? roundDownToStep(start + step, step) : start;
    if (ticks <= -1) {
        // "minimum − step < start", with a negative left side counted as such.
        bool const room = minimum < step || minimum - step < start;
        return room ? roundDownToStep(start >= step ? start - step : 0, step) : start;
    }
    return start;
}

uint64_t newestStart(uint64_t maximum, uint64_t span) { return maximum >= span ? maximum - span : 0; }
