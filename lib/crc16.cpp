#include "crc16.h"

#include <array>

namespace {

constexpr std::array<uint16_t, 256> makeTable() {
    std::array<uint16_t, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        uint16_t crc = static_cast<uint16_t>(i);
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0x8408) : crc >> 1;
        table[i] = crc;
    }
    return table;
}

constexpr auto kTable = makeTable();

}  // namespace

uint16_t crc16Kermit(uint8_t const* data, size_t length) {
    uint16_t crc = 0;
    for (size_t i = 0; i < length; ++i) crc = static_cast<uint16_t>((crc >> 8) ^ kTable[(crc ^ data[i]) & 0xFF]);
    return crc;
}
