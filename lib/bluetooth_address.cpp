#include "bluetooth_address.h"

#include <charconv>

#include <fmt/core.h>

namespace {

constexpr size_t kFields = 6;
constexpr size_t kTextLength = kFields * 3 - 1;

}  // namespace

std::optional<uint64_t> parseBluetoothAddress(std::string_view text) {
    if (text.size() != kTextLength) return std::nullopt;
    uint64_t address = 0;
    for (size_t field = 0; field < kFields; ++field) {
        size_t const at = field * 3;
        if (field > 0 && text[at - 1] != ':') return std::nullopt;
        char const* const begin = text.data() + at;
        unsigned value = 0;
        auto const [end, error] = std::from_chars(begin, begin + 2, value, 16);
        if (error != std::errc() || end != begin + 2) return std::nullopt;
        address = address << 8 | value;
    }
    return address;
}

std::string formatBluetoothAddress(uint64_t address) {
    return fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", (address >> 40) & 0xFF, (address >> 32) & 0xFF,
                       (address >> 24) & 0xFF, (address >> 16) & 0xFF, (address >> 8) & 0xFF, address & 0xFF);
}
