#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "aes256_cbc.h"

namespace sim {

/// A request frame as received: the payload points into the frame buffer.
struct RequestFrame {
    uint16_t code = 0;
    uint16_t sequence = 0;
    uint8_t const* payload = nullptr;
    size_t length = 0;
};

/// The frame format of one connection, device side: header, payload and, on
/// an encrypted link, zero padding to whole AES blocks with a CRC-16/KERMIT in
/// the last two bytes, the whole encrypted as one continuous CBC stream per
/// direction.
class FrameLayer {
public:
    /// From now on frames are encrypted with `key`: received frames chain from
    /// a zero IV, sent frames from `sendIv`.
    void startEncryption(Aes256Cbc::Key const& key, Aes256Cbc::Iv const& sendIv);
    bool encrypted() const { return encrypted_; }

    /// Checks a line-decoded frame, decrypting it in place on an encrypted
    /// link; nothing when it is to be dropped.
    std::optional<RequestFrame> open(uint8_t* frame, size_t length);
    /// Appends the line-coded form of one frame to `out`.
    void seal(uint16_t code, uint16_t sequence, uint8_t const* payload, size_t length, std::vector<uint8_t>& out);

private:
    bool encrypted_ = false;
    Aes256Cbc receiveCipher_;
    Aes256Cbc sendCipher_;
    std::vector<uint8_t> scratch_;
};

}  // namespace sim
