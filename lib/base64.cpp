#include "base64.h"

#include <array>

namespace {

constexpr std::string_view kFirst62 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
static_assert(kFirst62.size() == 62);

struct ModeRow {
    std::string_view value62;
    std::string_view value63;
    bool padded;
};

// Indexed by Base64Mode.
constexpr ModeRow kModes[] = {
    {"+", "/", true},
    {"-", "_", true},
    {"%2B", "%2F", false},
};

ModeRow const& rowOf(Base64Mode mode) { return kModes[static_cast<size_t>(mode)]; }

constexpr int8_t kNotASymbol = -1;

std::array<int8_t, 256> reverseAlphabet(ModeRow const& row) {
    std::array<int8_t, 256> values{};
    values.fill(kNotASymbol);
    for (size_t i = 0; i < kFirst62.size(); ++i) values[static_cast<uint8_t>(kFirst62[i])] = static_cast<int8_t>(i);
    values[static_cast<uint8_t>(row.value62[0])] = 62;
    values[static_cast<uint8_t>(row.value63[0])] = 63;
    return values;
}

}  // namespace

std::string base64Encode(uint8_t const* data, size_t length, Base64Mode mode) {
    ModeRow const& row = rowOf(mode);
    std::string out;
    out.reserve((length + 2) / 3 * 4 * row.value62.size());
    auto const put = [&](uint32_t value) {
        if (value < 62)
            out += kFirst62[value];
        else
            out += value == 62 ? row.value62 : row.value63;
    };
    for (size_t i = 0; i < length; i += 3) {
        size_t const n = length - i < 3 ? length - i : 3;
        uint32_t group = uint32_t{data[i]} << 16;
        if (n > 1) group |= uint32_t{data[i + 1]} << 8;
        if (n > 2) group |= data[i + 2];
        // n bytes fill n + 1 symbols; the rest of the quartet is padding.
        for (size_t s = 0; s <= n; ++s) put((group >> (18 - 6 * s)) & 0x3F);
        if (row.padded) out.append(3 - n, '=');
    }
    return out;
}

std::optional<std::vector<uint8_t>> base64Decode(std::string_view text, Base64Mode mode) {
    ModeRow const& row = rowOf(mode);
    if (!row.padded || text.size() % 4 != 0) return std::nullopt;
    static std::array<std::array<int8_t, 256>, 2> const kReverse = {reverseAlphabet(kModes[0]),
                                                                    reverseAlphabet(kModes[1])};
    auto const& reverse = kReverse[static_cast<size_t>(mode)];

    size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
    size_t const symbols = text.size() - padding;

    std::vector<uint8_t> out;
    out.reserve(text.size() / 4 * 3);
    uint32_t bits = 0;
    unsigned bitCount = 0;
    for (size_t i = 0; i < symbols; ++i) {
        int8_t const value = reverse[static_cast<uint8_t>(text[i])];
        if (value == kNotASymbol) return std::nullopt;
        bits = (bits << 6) | static_cast<uint32_t>(value);
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            out.push_back(static_cast<uint8_t>(bits >> bitCount));
            bits &= (1u << bitCount) - 1;
        }
    }
    // What is left over must be the zero filler of the last quartet.
    if (bits != 0) return std::nullopt;
    return out;
}
