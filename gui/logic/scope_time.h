#pragma once

#include <cstddef>
#include <cstdint>

#include "scope_layout.h"

// The scope display's time window, in microseconds: which step of its table
// is the time per division, where the window starts, and how zooming and
// panning move it. Times are unsigned; where a move would go below zero it
// stops at zero.

/// The step a requested index selects in a table of `count` steps: the last
/// one for an index past the end.
std::size_t clampedStepIndex(std::size_t index, std::size_t count);

/// One step coarser (up the table) or finer (down), staying at the ends.
std::size_t steppedIndex(std::size_t index, std::size_t count, bool coarser);

/// The step index after `ticks` of the mouse wheel: finer for ticks ≥ 1,
/// coarser for ticks ≤ −1, one step whatever the count.
std::size_t wheelStepIndex(std::size_t index, std::size_t count, int ticks);

/// `time` rounded down to a multiple of `step`.
uint64_t roundDownToStep(uint64_t time, uint64_t step);

/// The time `pixels` columns cover at `timePerDivision`: one whole division
/// for 0 pixels, and at least 1 µs.
uint64_t panAmount(uint64_t timePerDivision, unsigned pixels);

/// The start after panning by `amount`: backwards only when the start is at
/// least the amount, forwards without limit.
uint64_t pannedStart(uint64_t start, uint64_t amount, bool forward);

/// The start after zooming about the pointer at `x`: the time under the
/// pointer stays under it, and the start falls on a multiple of `newStep`.
uint64_t zoomedStart(uint64_t start, uint64_t oldSpan, uint64_t newStep, int x, ScopeLayout const& layout);

/// The start after a Ctrl-wheel pan of one division: forwards while the
/// window ends before `maximum + step`, backwards while it starts after
/// `minimum − step`; unchanged for ticks 0 or at a limit.
uint64_t wheelPannedStart(uint64_t start, uint64_t span, uint64_t step, uint64_t minimum, uint64_t maximum, int ticks);

/// The start that puts the newest data, at `maximum`, against the right edge.
uint64_t newestStart(uint64_t maximum, uint64_t span);
