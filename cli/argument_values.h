#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Readers of the argument values that are more than a number or a word. Each
// throws a usage CommandError naming the argument when the text is not valid.

/// A hardware revision: "0x41" (hex) or "65" (decimal), 0 to 255.
uint8_t parseRevision(std::string const& text, char const* what);

/// A serial number: up to 16 hex digits, with or without "0x".
uint64_t parseSerial(std::string const& text, char const* what);

/// Whose clock a written "YYYY-MM-DD HH:MM:SS" is read on: this computer's
/// (the local time zone, TZ applies), or a data log's, whose stamps are the
/// device's wall clock with no time zone applied.
enum class ClockText { Local, Log };

/// A point in time: seconds since 1970-01-01 UTC, or "YYYY-MM-DD HH:MM:SS" on
/// the clock `clock` says.
int64_t parseTime(std::string const& text, char const* what, ClockText clock = ClockText::Local);

/// Exactly `size` bytes written as hex digits (either case).
std::vector<uint8_t> parseHexBytes(std::string const& text, size_t size, char const* what);
