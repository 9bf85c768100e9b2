#include "frame_layer.h"

#include "byte_io.h"
#include "cobs.h"
#include "crc16.h"
#include "device_protocol.h"

namespace sim {

namespace {

constexpr size_t kBlock = 16;
constexpr size_t kCrcSize = 2;

size_t paddedSize(size_t payloadLength) {
    return (kFrameHeaderSize + payloadLength + kCrcSize + kBlock - 1) / kBlock * kBlock;
}

}  // namespace

void FrameLayer::startEncryption(Aes256Cbc::Key const& key, Aes256Cbc::Iv const& sendIv) {
    receiveCipher_.init(key);
    receiveCipher_.setIv(nullptr);
    sendCipher_.init(key);
    sendCipher_.setIv(sendIv.data());
    encrypted_ = true;
}

std::optional<RequestFrame> FrameLayer::open(uint8_t* frame, size_t length) {
    size_t trailer = 0;
    if (encrypted_) {
        if (length == 0 || length % kBlock != 0) return std::nullopt;
        // Decrypting moves the chain on even when the frame is then dropped, as
        // the host's encryption has moved on too.
        receiveCipher_.decrypt(frame, length);
        if (readLe<uint16_t>(frame + length - kCrcSize) != crc16Kermit(frame, length - kCrcSize)) return std::nullopt;
        trailer = kCrcSize;
    }
    if (length < kFrameHeaderSize + trailer) return std::nullopt;
    RequestFrame request{readLe<uint16_t>(frame), readLe<uint16_t>(frame + 2), frame + kFrameHeaderSize,
                         readLe<uint16_t>(frame + 4)};
    if (length < kFrameHeaderSize + request.length + trailer) return std::nullopt;
    return request;
}

void FrameLayer::seal(uint16_t code, uint16_t sequence, uint8_t const* payload, size_t length,
                      std::vector<uint8_t>& out) {
    scratch_.clear();
    ByteWriter(scratch_)
        .write<uint16_t>(code)
        .write<uint16_t>(sequence)
        .write<uint16_t>(static_cast<uint16_t>(length))
        .writeBytes(payload, length);
    if (encrypted_) {
        size_t const total = paddedSize(length);
        scratch_.resize(total - kCrcSize, 0);
        ByteWriter(scratch_).write<uint16_t>(crc16Kermit(scratch_.data(), scratch_.size()));
        sendCipher_.encrypt(scratch_.data(), scratch_.size());
    }
    cobsEncode(scratch_.data(), scratch_.size(), out);
}

}  // namespace sim
