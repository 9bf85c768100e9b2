#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

/// The source behind fillRandom; a test may hand in one that interrupts or
/// returns short reads. Same contract as getrandom(2).
using RandomSource = ssize_t (*)(void* buffer, size_t length, unsigned int flags);

/// Fills `buffer` from the operating system's random source, retrying after an
/// interruption and continuing after a short read. Returns false when the
/// source fails otherwise; the buffer is then only partly filled.
bool fillRandom(uint8_t* buffer, size_t length, RandomSource source = nullptr);
