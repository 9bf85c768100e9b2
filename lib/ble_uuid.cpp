#include "ble_uuid.h"

#include <algorithm>

#include "byte_io.h"
#include "hex.h"

namespace {

// 00000000-0000-1000-8000-00805f9b34fb, least significant byte first; a 16-bit
// UUID takes bytes 12 and 13.
constexpr BleUUID::Bytes kBaseUuid = {0xFB, 0x34, 0x9B, 0x5F, 0x80, 0x00, 0x00, 0x80,
                                      0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
constexpr size_t kShortUuidAt = 12;

// Where the 8-4-4-4-12 form puts its dashes.
constexpr size_t kDashes[] = {8, 13, 18, 23};
constexpr size_t kLongTextLength = 36;
constexpr size_t kShortTextLength = 4;

}  // namespace

std::optional<BleUUID> BleUUID::parse(std::string_view text) {
    if (text.size() == kShortTextLength) {
        auto const bytes = hexDecode(text);
        if (!bytes) return std::nullopt;
        return BleUUID(static_cast<uint16_t>((*bytes)[0] << 8 | (*bytes)[1]));
    }
    if (text.size() != kLongTextLength) return std::nullopt;
    std::string digits;
    for (size_t i = 0; i < text.size(); ++i) {
        bool const dashHere = std::find(std::begin(kDashes), std::end(kDashes), i) != std::end(kDashes);
        if (dashHere != (text[i] == '-')) return std::nullopt;
        if (!dashHere) digits += text[i];
    }
    auto const bytes = hexDecode(digits);
    if (!bytes) return std::nullopt;
    Bytes wire{};
    std::reverse_copy(bytes->begin(), bytes->end(), wire.begin());
    return BleUUID(wire);
}

std::optional<BleUUID> BleUUID::fromWire(uint8_t const* data, size_t length) {
    if (length == sizeof(uint16_t)) return BleUUID(readLe<uint16_t>(data));
    if (length != sizeof(Bytes)) return std::nullopt;
    Bytes wire{};
    std::copy(data, data + length, wire.begin());
    return BleUUID(wire);
}

BleUUID::Bytes BleUUID::wireBytes128() const {
    if (!is16Bit_) return bytes_;
    Bytes wire = kBaseUuid;
    writeLe<uint16_t>(wire.data() + kShortUuidAt, short_);
    return wire;
}

std::string BleUUID::toString() const {
    if (!is16Bit_) return toString128();
    uint8_t const bytes[] = {static_cast<uint8_t>(short_ >> 8), static_cast<uint8_t>(short_)};
    return hexEncode(bytes, sizeof bytes);
}

std::string BleUUID::toString128() const {
    Bytes const wire = wireBytes128();
    Bytes textOrder{};
    std::reverse_copy(wire.begin(), wire.end(), textOrder.begin());
    std::string text = hexEncode(textOrder.data(), textOrder.size());
    for (size_t const at : kDashes) text.insert(at, 1, '-');
    return text;
}
