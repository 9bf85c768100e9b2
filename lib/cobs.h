#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

// Consistent Overhead Byte Stuffing, the line coding of every transport: a frame
// is written as a zero byte, the COBS body (blocks of at most 254 data bytes),
// and a terminating zero, so a zero byte always marks a frame boundary.

/// Largest encoded size of `length` bytes, both delimiting zeros included.
size_t cobsMaxEncodedSize(size_t length);

/// Appends the zero-delimited encoding of `data` to `out`.
void cobsEncode(uint8_t const* data, size_t length, std::vector<uint8_t>& out);

/// Decodes a COBS body (no delimiting zeros) into `out`, which must hold at
/// least `length` bytes; those past the decoded length may be overwritten.
/// Returns the decoded length, or nothing when the body is malformed (a zero
/// byte inside it, or a block that runs past its end).
std::optional<size_t> cobsDecode(uint8_t const* body, size_t length, uint8_t* out);

/// Splits a byte stream at zero bytes and decodes each frame in between.
/// Frames whose body exceeds the limit are discarded whole, up to the next zero;
/// empty bodies (two zeros in a row) and malformed ones are skipped.
class CobsStreamDecoder {
public:
    explicit CobsStreamDecoder(size_t maxBodyLength) : maxBodyLength_(maxBodyLength) {}

    /// Feeds bytes; calls `onFrame(uint8_t* frame, size_t length)` for every
    /// well-formed frame completed by them. The frame buffer is valid only
    /// during the call.
    template <class OnFrame>
    void feed(uint8_t const* data, size_t length, OnFrame&& onFrame) {
        uint8_t const* const end = data + length;
        while (data != end) {
            auto const* zero = static_cast<uint8_t const*>(std::memchr(data, 0, static_cast<size_t>(end - data)));
            if (zero == nullptr) {
                append(data, static_cast<size_t>(end - data));
                return;
            }
            if (std::optional<std::span<uint8_t>> const frame = endFrame(data, static_cast<size_t>(zero - data)))
                onFrame(frame->data(), frame->size());
            data = zero + 1;
        }
    }

    /// Forgets a partly received frame.
    void reset() {
        body_.clear();
        overflow_ = false;
    }

private:
    /// Keeps the start of a frame whose end has not arrived yet.
    void append(uint8_t const* data, size_t length);
    /// Ends the frame with its last `length` bytes (those before the zero) and
    /// decodes it into frame_; nothing when it is to be skipped.
    std::optional<std::span<uint8_t>> endFrame(uint8_t const* tail, size_t length);

    size_t maxBodyLength_;
    std::vector<uint8_t> body_;
    std::vector<uint8_t> frame_;
    bool overflow_ = false;
};
