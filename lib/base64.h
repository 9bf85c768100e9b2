#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The three ways base64 text is written. Standard and UrlSafe differ only in the
/// symbols for values 62 and 63 and are padded with "=" to a multiple of four;
/// PercentEncoded is Standard ready for a URL: "%2B" and "%2F" stand for "+" and
/// "/", and there is no padding.
enum class Base64Mode { Standard = 0, UrlSafe = 1, PercentEncoded = 2 };

/// Encodes `length` bytes; no bytes give an empty text.
std::string base64Encode(uint8_t const* data, size_t length, Base64Mode mode);

/// Decodes padded Standard or UrlSafe text. Gives nothing for a length that is
/// not a multiple of four, a symbol outside the mode's alphabet, misplaced
/// padding, or unused low bits that are not zero (so every byte string has
/// exactly one accepted text). PercentEncoded text is only ever written, so
/// decoding in that mode always gives nothing.
std::optional<std::vector<uint8_t>> base64Decode(std::string_view text, Base64Mode mode);
