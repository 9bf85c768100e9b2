#include "frame_codec.h"

#include <array>
#include <cstring>
#include <stdexcept>

#include "byte_io.h"
#include "cobs.h"
#include "crc16.h"

void encodeFrame(FrameHeader const& header, uint8_t const* payload, Aes256Cbc* cipher, std::vector<uint8_t>& out) {
    if (header.length > kMaxFramePayload) throw std::logic_error("frame payload too long");
    size_t const n = header.length;
    size_t const plainSize = kFrameHeaderSize + n;
    size_t const frameSize = cipher ? encryptedFrameSize(n) : plainSize;

    // One buffer per frame, built once and encoded once; small frames stay on the stack.
    std::array<uint8_t, 512> small;
    std::vector<uint8_t> large;
    uint8_t* frame = small.data();
    if (frameSize > small.size()) {
        large.resize(frameSize);
        frame = large.data();
    }

    writeLe<uint16_t>(frame, header.code);
    writeLe<uint16_t>(frame + 2, header.sequence);
    writeLe<uint16_t>(frame + 4, header.length);
    if (n > 0) std::memcpy(frame + kFrameHeaderSize, payload, n);
    if (cipher) {
        std::memset(frame + plainSize, 0, frameSize - plainSize);
        writeLe<uint16_t>(frame + frameSize - 2, crc16Kermit(frame, frameSize - 2));
        cipher->encrypt(frame, frameSize);
    }
    cobsEncode(frame, frameSize, out);
}

std::optional<FrameHeader> decodeFrame(uint8_t* frame, size_t length, Aes256Cbc* cipher) {
    size_t minimum = kFrameHeaderSize;
    if (cipher) {
        /* An encrypted frame is whole blocks; anything else cannot be decrypted. */
        if (length == 0 || (length & 0xF) != 0) return std::nullopt;
        cipher->decrypt(frame, length);
        /* A frame whose CRC does not match was garbled on the way or decrypted out of step. */
        if (crc16Kermit(frame, length - 2) != readLe<uint16_t>(frame + length - 2)) return std::nullopt;
        minimum += 2;
    }
    if (length < kFrameHeaderSize) return std::nullopt;
    FrameHeader header{readLe<uint16_t>(frame), readLe<uint16_t>(frame + 2), readLe<uint16_t>(frame + 4)};
    /* The payload length must fit inside what arrived. */
    if (length < minimum + header.length) return std::nullopt;
    return header;
}
