#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// A Bluetooth device address as a 48-bit number whose most significant byte
// is the first field of the text form: "C2:5A:4C:00:00:01" is 0xC25A4C000001.

/// Exactly six fields of two hexadecimal digits (either case) separated by
/// colons; nothing for any other text.
std::optional<uint64_t> parseBluetoothAddress(std::string_view text);
/// "C2:5A:4C:00:00:01": upper-case digits, as the system tools show addresses.
std::string formatBluetoothAddress(uint64_t address);
