#include "scope_spans.h"

#include <algorithm>

namespace {

// Half-way between two rows, rounded towards `from` so that a column never
// takes its neighbour's row as its own.
int halfWay(int from, int to) { return from + (to - from) / 2; }

}  // namespace

std::vector<ColumnSpan> traceSpans(std::span<int const> rows) {
    std::vector<ColumnSpan> spans;
    spans.reserve(rows.size());
    for (size_t c = 0; c < rows.size(); ++c) {
        int const row = rows[c];
        if (row == kNoRow) continue;
        int top = row;
        int bottom = row;
        for (size_t n : {c - 1, c + 1}) {
            if (n >= rows.size() || rows[n] == kNoRow) continue;
            int const middle = halfWay(row, rows[n]);
            top = std::min(top, middle);
            bottom = std::max(bottom, middle);
        }
        spans.push_back({static_cast<int>(c), top - 1, bottom});
    }
    return spans;
}
