#include "hex.h"

namespace {

constexpr char kDigits[] = "0123456789abcdef";

int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string hexEncode(uint8_t const* data, size_t length) {
    std::string out;
    out.reserve(length * 2);
    for (size_t i = 0; i < length; ++i) {
        out += kDigits[data[i] >> 4];
        out += kDigits[data[i] & 0x0F];
    }
    return out;
}

std::optional<std::vector<uint8_t>> hexDecode(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::vector<uint8_t> out;
    out.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        int const high = digitValue(text[i]);
        int const low = digitValue(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        out.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    return out;
}
