#include "scope_layout.h"

#include <algorithm>

ScopeLayout scopeLayout(int width, int height, std::size_t scaleCount) {
    int const scaleColumns = kScopeScaleColumnPixels * static_cast<int>(scaleCount);
    ScopeLayout layout;
    layout.top = 25;
    layout.left = kScopeMarginPixels + scaleColumns;
    layout.verticalDivisions = std::max(0, (height - 50) / kScopeDivisionPixels);
    layout.bottom = 26 + kScopeDivisionPixels * layout.verticalDivisions;
    layout.horizontalDivisions = std::max(0, (width - 2 * kScopeMarginPixels - scaleColumns) / kScopeDivisionPixels);
    layout.right = layout.left + kScopeDivisionPixels * layout.horizontalDivisions + 1;
    return layout;
}

uint64_t scopeSpan(ScopeLayout const& layout, uint64_t timePerDivision) {
    return static_cast<uint64_t>(layout.horizontalDivisions) * timePerDivision;
}

std::size_t scopeColumns(ScopeLayout const& layout) { return static_cast<std::size_t>(layout.right - layout.left); }

std::size_t drawnColumns(ScopeLayout const& layout, std::size_t sampleCount) {
    return std::min(scopeColumns(layout), sampleCount);
}

int scaleAxisX(std::size_t index) {
    return kScopeMarginPixels + kScopeScaleColumnPixels * (static_cast<int>(index) + 1);
}

std::optional<std::size_t> scaleIndexAt(int x, std::size_t scaleCount) {
    int const index = (x - kScopeMarginPixels) / kScopeScaleColumnPixels;
    if (index < 0 || static_cast<std::size_t>(index) >= scaleCount) return std::nullopt;
    return static_cast<std::size_t>(index);
}

ScopePoint clampToPlot(ScopePoint point, ScopeLayout const& layout) {
    // max before min: a plot without divisions still yields its left/top edge.
    return {std::max(layout.left, std::min(point.x, layout.right - 1)),
            std::max(layout.top, std::min(point.y, layout.bottom - 1))};
}

int firstCursorX(ScopeLayout const& layout) { return (layout.right + 2 * layout.left) / 3; }

int secondCursorX(ScopeLayout const& layout) { return (layout.left + 2 * layout.right) / 3; }
