#pragma once

#include <cstddef>
#include <cstdint>

// The ways crc16Kermit computes its value. It picks one at run time, by length
// and by what the CPU offers, so a test on any one machine would only ever see
// some of them: the tests call each one here directly. Not part of the
// library's interface.
namespace crc16_paths {

/// Slicing-by-16 tables; any length, any CPU.
uint16_t sliced(uint8_t const* data, size_t length);

#if defined(__x86_64__)
/// The shortest input folded() takes.
inline constexpr size_t kFoldBytes = 64;

/// Whether this CPU has the carry-less multiply that folded() needs.
bool canFold();

/// Carry-less multiply folding, 64 bytes at a time; `length` at least
/// kFoldBytes, and only where canFold().
uint16_t folded(uint8_t const* data, size_t length);
#endif

}  // namespace crc16_paths
