#pragma once

#include <cstdio>
#include <cstdlib>

// A broken invariant ends the run the way a sanitizer finding does: the
// fuzzer keeps the input as a crash and the random driver stops at its count.
// The text names the invariant, so that a finding reads without a debugger.
inline void fuzzCheck(bool holds, char const* invariant) {
    if (holds) return;
    std::fprintf(stderr, "invariant broken: %s\n", invariant);
    std::abort();
}
