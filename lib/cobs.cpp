#include "cobs.h"

#include <algorithm>
#include <bit>

#include "byte_io.h"

namespace {

constexpr size_t kMaxBlockData = 254;
constexpr size_t kWord = 8;
constexpr uint64_t kLow7Bits = 0x7F7F7F7F7F7F7F7FULL;
constexpr size_t kPage = 4096;

// The top bit of every byte of a little-endian word that is zero, and no other
// bit: adding 0x7F to the low seven bits sets the top bit of every byte that
// has any, and no carry crosses into the next byte.
inline uint64_t zeroBytes(uint64_t word) { return ~(((word & kLow7Bits) + kLow7Bits) | word | kLow7Bits); }

// In COBS every zero byte of the input becomes the code byte of the block
// after it, in the same place, and the data bytes keep their places too, so
// an encoder can copy words and then fill in the code bytes of the zeros it
// finds in them: the code byte of the block that ends there is the distance
// from that block's own code byte. `o` is where the word was copied to.
inline void placeCodes(uint64_t zeros, uint8_t* o, uint8_t*& code) {
    for (; zeros != 0; zeros &= zeros - 1) {
        uint8_t* const zero = o + std::countr_zero(zeros) / 8;
        *code = static_cast<uint8_t>(zero - code);
        code = zero;
    }
}

// A block shorter than 32 bytes is copied a word at a time, the last word
// overlapping the one before, rather than by a call to memcpy.
inline void copyBlock(uint8_t* dst, uint8_t const* src, size_t n) {
    if (n >= 4 * kWord) {
        std::memcpy(dst, src, n);
    } else if (n >= kWord) {
        for (size_t i = 0; i + kWord < n; i += kWord) std::memcpy(dst + i, src + i, kWord);
        std::memcpy(dst + n - kWord, src + n - kWord, kWord);
    } else {
        for (size_t i = 0; i < n; ++i) dst[i] = src[i];
    }
}

// The block structure of a body known to hold no zero byte.
std::optional<size_t> decodeBlocks(uint8_t const* body, size_t length, uint8_t* out) {
    size_t in = 0;
    size_t n = 0;
    while (in < length) {
        size_t const code = body[in++];
        size_t const count = code - 1;
        if (count > length - in) return std::nullopt;
        if (count <= kWord && length - in >= kWord) {
            // One word move covers a short block. The decoded length trails
            // the read position by at least the code byte, so while a word is
            // left in the body, a word also fits in `out`; its bytes past the
            // block are overwritten by what follows or lie past the end.
            std::memcpy(out + n, body + in, kWord);
        } else {
            copyBlock(out + n, body + in, count);
        }
        in += count;
        n += count;
        // A full block ends without an implied zero, and so does the last one.
        if (code != 0xFF && in < length) out[n++] = 0;
    }
    return n;
}

}  // namespace

size_t cobsMaxEncodedSize(size_t length) { return length + length / kMaxBlockData + 1 + 2; }

void cobsEncode(uint8_t const* data, size_t length, std::vector<uint8_t>& out) {
    size_t const start = out.size();
    out.resize(start + cobsMaxEncodedSize(length));
    out[start] = 0;
    uint8_t* code = out.data() + start + 1;  // the code byte of the block being written
    uint8_t* o = code + 1;                   // where the next input byte goes
    uint8_t const* p = data;
    uint8_t const* const end = data + length;
    // A block holds o - code - 1 data bytes so far, at most 254.
    constexpr ptrdiff_t kFullBlock = kMaxBlockData + 1;
    constexpr ptrdiff_t kStride = 2 * kWord;
    for (;;) {
        // Sixteen bytes at a time while the block has room for them. Records
        // have a zero every few bytes, handled here inline; ciphertext and
        // samples run for hundreds, and once sixteen bytes have passed without
        // one, the rest of the block goes to the library's vector scan and copy.
        while (end - p >= kStride && o - code <= kFullBlock - kStride) {
            uint64_t const zeros0 = zeroBytes(readLe<uint64_t>(p));
            uint64_t const zeros1 = zeroBytes(readLe<uint64_t>(p + kWord));
            std::memcpy(o, p, kStride);
            o += kStride;
            p += kStride;
            if ((zeros0 | zeros1) != 0) {
                placeCodes(zeros0, o - kStride, code);
                placeCodes(zeros1, o - kWord, code);
                continue;
            }
            auto const room = static_cast<size_t>(std::min(end - p, kFullBlock - (o - code)));
            if (room == 0) continue;
            auto const* zero = static_cast<uint8_t const*>(std::memchr(p, 0, room));
            size_t const n = zero != nullptr ? static_cast<size_t>(zero - p) : room;
            std::memcpy(o, p, n);
            o += n;
            p += n;
            if (zero != nullptr) {
                *code = static_cast<uint8_t>(o - code);
                code = o++;
                ++p;
            }
        }
        if (p == end) break;
        // A full block ends without an implied zero; when more input follows,
        // even a zero, the next block starts with a code byte of its own.
        if (o - code == kFullBlock) {
            *code = 0xFF;
            code = o++;
            continue;
        }
        if (*p == 0) {
            *code = static_cast<uint8_t>(o - code);
            code = o++;
        } else {
            *o++ = *p;
        }
        ++p;
    }
    *code = static_cast<uint8_t>(o - code);
    *o++ = 0;
    out.resize(static_cast<size_t>(o - out.data()));
}

std::optional<size_t> cobsDecode(uint8_t const* body, size_t length, uint8_t* out) {
    if (length > 0 && std::memchr(body, 0, length) != nullptr) return std::nullopt;
    return decodeBlocks(body, length, out);
}

void CobsStreamDecoder::append(uint8_t const* data, size_t length) {
    if (overflow_ || length > maxBodyLength_ - body_.size()) {
        // The frame is lost whatever follows, so its bytes need not be kept.
        overflow_ = true;
        body_.clear();
        return;
    }
    body_.insert(body_.end(), data, data + length);
}

std::optional<std::span<uint8_t>> CobsStreamDecoder::endFrame(uint8_t const* tail, size_t length) {
    std::optional<std::span<uint8_t>> decoded;
    if (!overflow_ && length <= maxBodyLength_ - body_.size()) {
        // A frame that arrived in one piece is decoded where it lies.
        uint8_t const* body = tail;
        if (!body_.empty()) {
            body_.insert(body_.end(), tail, tail + length);
            body = body_.data();
            length = body_.size();
        }
        if (length > 0) {
            // The decoder's stores run a little behind its loads. When the two
            // addresses are the same modulo 4 KiB, each load waits for the
            // store before it (4K aliasing), which makes decoding several times
            // slower; so the frame goes half a page away from its body.
            if (frame_.size() < length + kPage) frame_.resize(length + kPage);
            auto const start = reinterpret_cast<uintptr_t>(frame_.data());
            auto const wanted = reinterpret_cast<uintptr_t>(body) + kPage / 2;
            uint8_t* const frame = frame_.data() + ((wanted - start) & (kPage - 1));
            if (std::optional<size_t> const n = decodeBlocks(body, length, frame)) decoded.emplace(frame, *n);
        }
    }
    body_.clear();
    overflow_ = false;
    return decoded;
}
