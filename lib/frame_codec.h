#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "aes256_cbc.h"

// The frame of the command protocol, the same on every transport:
//   offset 0  u16  command code (requests) or response code (answers)
//   offset 2  u16  sequence number
//   offset 4  u16  payload length n
//   offset 6  n    payload
// Plain frames are exactly 6 + n bytes. On an encrypted link the frame is
// padded with zeros to whole 16-byte blocks, its last two bytes carry the
// CRC-16/KERMIT of everything before them (low byte first), and the result is
// encrypted with AES-256-CBC. Either way the frame then travels COBS-encoded
// between zero bytes.

inline constexpr size_t kFrameHeaderSize = 6;
inline constexpr size_t kMaxFramePayload = 0xFFFF;

/// Response code words that are not answers of their own.
inline constexpr uint16_t kContinuationCode = 0x0100;  // more frames of this answer follow
inline constexpr uint16_t kNotificationCode = 0x8000;  // unsolicited: a WiFi scan result

/// Length of an encrypted frame with an `n`-byte payload: 6 + n + 2 rounded up to 16.
constexpr size_t encryptedFrameSize(size_t n) { return (n + 23) & ~size_t{15}; }

struct FrameHeader {
    uint16_t code = 0;
    uint16_t sequence = 0;
    uint16_t length = 0;
};

/// Builds one frame, encrypting it with `cipher` when it is given, and appends
/// its zero-delimited COBS encoding to `out`. `n` must not exceed kMaxFramePayload.
void encodeFrame(FrameHeader const& header, uint8_t const* payload, Aes256Cbc* cipher, std::vector<uint8_t>& out);

/// Checks a frame as received (COBS already removed), decrypting it in place
/// with `cipher` when it is given. Returns the header when the frame is whole;
/// its payload then starts at frame + kFrameHeaderSize. A frame that fails a
/// rule is dropped: nothing is returned.
std::optional<FrameHeader> decodeFrame(uint8_t* frame, size_t length, Aes256Cbc* cipher);
