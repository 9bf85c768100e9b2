#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// Consistent Overhead Byte Stuffing, the line coding of every transport: a frame
// is written as a zero byte, the COBS body (blocks of at most 254 data bytes),
// and a terminating zero, so a zero byte always marks a frame boundary.

/// Largest encoded size of `length` bytes, both delimiting zeros included.
size_t cobsMaxEncodedSize(size_t length);

/// Appends the zero-delimited encoding of `data` to `out`.
void cobsEncode(uint8_t const* data, size_t length, std::vector<uint8_t>& out);

/// Decodes a COBS body (no delimiting zeros) into `out`, which must hold at
/// least `length` bytes. Returns the decoded length, or nothing when the body is
/// malformed (a zero byte inside it, or a block that runs past its end).
std::optional<size_t> cobsDecode(uint8_t const* body, size_t length, uint8_t* out);

/// Splits a byte stream at zero bytes and decodes each frame in between.
/// Frames whose body exceeds the limit are discarded whole, up to the next zero.
class CobsStreamDecoder {
public:
    explicit CobsStreamDecoder(size_t maxBodyLength) : maxBodyLength_(maxBodyLength) {}

    /// Feeds bytes; calls `onFrame(uint8_t* frame, size_t length)` for every
    /// well-formed frame completed by them. The frame buffer is valid only
    /// during the call.
    template <class OnFrame>
    void feed(uint8_t const* data, size_t length, OnFrame&& onFrame) {
        for (size_t i = 0; i < length; ++i) {
            uint8_t const b = data[i];
            if (b != 0) {
                if (body_.size() < maxBodyLength_)
                    body_.push_back(b);
                else
                    overflow_ = true;
                continue;
            }
            if (!body_.empty() && !overflow_) {
                frame_.resize(body_.size());
                if (auto n = cobsDecode(body_.data(), body_.size(), frame_.data())) onFrame(frame_.data(), *n);
            }
            body_.clear();
            overflow_ = false;
        }
    }

    /// Forgets a partly received frame.
    void reset() {
        body_.clear();
        overflow_ = false;
    }

private:
    size_t maxBodyLength_;
    std::vector<uint8_t> body_;
    std::vector<uint8_t> frame_;
    bool overflow_ = false;
};
