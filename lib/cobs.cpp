#include "cobs.h"

size_t cobsMaxEncodedSize(size_t length) { return length + length / 254 + 1 + 2; }

void cobsEncode(uint8_t const* data, size_t length, std::vector<uint8_t>& out) {
    out.reserve(out.size() + cobsMaxEncodedSize(length));
    out.push_back(0);
    size_t codeAt = out.size();
    out.push_back(1);
    uint8_t code = 1;
    for (size_t i = 0; i < length; ++i) {
        if (data[i] == 0) {
            out[codeAt] = code;
            codeAt = out.size();
            out.push_back(1);
            code = 1;
            continue;
        }
        out.push_back(data[i]);
        ++code;
        // A full block of 254 data bytes ends without an implied zero; the
        // next block starts with a code byte of its own.
        if (code == 0xFF && i + 1 < length) {
            out[codeAt] = code;
            codeAt = out.size();
            out.push_back(1);
            code = 1;
        }
    }
    out[codeAt] = code;
    out.push_back(0);
}

std::optional<size_t> cobsDecode(uint8_t const* body, size_t length, uint8_t* out) {
    size_t in = 0;
    size_t n = 0;
    while (in < length) {
        uint8_t const code = body[in++];
        if (code == 0) return std::nullopt;
        size_t const blockEnd = in + code - 1;
        if (blockEnd > length) return std::nullopt;
        while (in < blockEnd) {
            if (body[in] == 0) return std::nullopt;
            out[n++] = body[in++];
        }
        if (code != 0xFF && in < length) out[n++] = 0;
    }
    return n;
}
