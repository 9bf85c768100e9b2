#include "crc32.h"

#include <zlib.h>

#include <algorithm>
#include <climits>

uint32_t crc32Of(uint8_t const* data, size_t length) {
    uLong crc = crc32(0L, Z_NULL, 0);
    // zlib takes a 32-bit length per call.
    while (length > 0) {
        auto const n = static_cast<uInt>(std::min<size_t>(length, UINT_MAX));
        crc = crc32(crc, data, n);
        data += n;
        length -= n;
    }
    return static_cast<uint32_t>(crc);
}
