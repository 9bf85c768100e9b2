#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Every byte as two lower-case digits, most significant first, no separator.
std::string hexEncode(uint8_t const* data, size_t length);

/// Reads text written by hexEncode; upper-case digits are accepted too. Gives
/// nothing for an odd length or any character that is not a hexadecimal digit.
std::optional<std::vector<uint8_t>> hexDecode(std::string_view text);
