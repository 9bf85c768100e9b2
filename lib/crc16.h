#pragma once

#include <cstddef>
#include <cstdint>

/// CRC-16/KERMIT: reflected polynomial 0x1021, initial value 0, no final XOR.
/// Guards every encrypted frame.
uint16_t crc16Kermit(uint8_t const* data, size_t length);
