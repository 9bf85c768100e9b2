#pragma once

#include <cstddef>
#include <cstdint>

/// The standard CRC-32 (reflected polynomial 0xEDB88320) of firmware files.
uint32_t crc32Of(uint8_t const* data, size_t length);
