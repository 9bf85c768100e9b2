#pragma once

#include <array>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// Byte strings in tests are written as spaced hexadecimal ("00 02 01"), and
// mismatches print the same way.

inline std::string hex(uint8_t const* data, size_t length) {
    static char const digits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < length; ++i) {
        if (i) out += ' ';
        out += digits[data[i] >> 4];
        out += digits[data[i] & 0xF];
    }
    return out;
}

inline std::string hex(std::vector<uint8_t> const& bytes) { return hex(bytes.data(), bytes.size()); }

template <size_t N>
std::string hex(std::array<uint8_t, N> const& bytes) {
    return hex(bytes.data(), N);
}

inline std::vector<uint8_t> fromHex(std::string_view text) {
    std::vector<uint8_t> out;
    std::istringstream in{std::string(text)};
    std::string byte;
    while (in >> byte) out.push_back(static_cast<uint8_t>(std::stoul(byte, nullptr, 16)));
    return out;
}
