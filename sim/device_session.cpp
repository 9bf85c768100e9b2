#include "device_session.h"

#include <algorithm>

#include "random_bytes.h"
#include "simulated_device.h"

namespace sim {

namespace {

// The largest frame a host can send: a whole 16-bit payload, padding and CRC,
// plus the COBS overhead of one byte in 254.
constexpr size_t kMaxFrameBody = (kFrameHeaderSize + kMaxFramePayload + 18) * 255 / 254 + 1;

size_t clampPayload(size_t maxPayload) { return std::clamp<size_t>(maxPayload, 1, kMaxFramePayload); }

}  // namespace

DeviceSession::DeviceSession(SimulatedDevice& device, SessionMode mode, SendFunction send, size_t maxFramePayload)
    : device_(device),
      mode_(mode),
      send_(std::move(send)),
      maxFramePayload_(clampPayload(maxFramePayload)),
      linkOpen_(mode == SessionMode::Plain),
      decoder_(kMaxFrameBody) {}

void DeviceSession::setMaxFramePayload(size_t maxPayload) { maxFramePayload_.store(clampPayload(maxPayload)); }

void DeviceSession::receive(uint8_t const* data, size_t length) {
    if (closed()) return;
    pending_.insert(pending_.end(), data, data + length);
    if (receiving_) return;
    receiving_ = true;
    std::vector<uint8_t> chunk;
    while (!pending_.empty() && !closed()) {
        chunk.swap(pending_);
        pending_.clear();
        consume(chunk.data(), chunk.size());
    }
    pending_.clear();
    receiving_ = false;
}

void DeviceSession::consume(uint8_t const* data, size_t length) {
    if (!linkOpen_) {
        size_t const used = takeHello(data, length);
        data += used;
        length -= used;
        if (!linkOpen_) return;
    }
    decoder_.feed(data, length, [this](uint8_t* frame, size_t frameLength) {
        if (!closed()) handleFrame(frame, frameLength);
    });
}

size_t DeviceSession::takeHello(uint8_t const* data, size_t length) {
    size_t const used = std::min(length, kHelloSize - hello_.size());
    hello_.insert(hello_.end(), data, data + used);
    if (hello_.size() < kHelloSize) return used;
    Zelmor::WifiAccessKey const key = device_.accessKey();
    if (hello_[0] != kHelloVersion || !std::equal(key.keyId.begin(), key.keyId.end(), hello_.begin() + 1)) {
        close();
        return used;
    }
    // The first IV of the device's direction is never sent: the host loses its
    // first answer and is in step from the second on.
    Aes256Cbc::Iv sendIv;
    if (!fillRandom(sendIv.data(), sendIv.size())) {
        close();
        return used;
    }
    frames_.startEncryption(key.key, sendIv);
    linkOpen_ = true;
    return used;
}

void DeviceSession::handleFrame(uint8_t* frame, size_t length) {
    std::optional<RequestFrame> const request = frames_.open(frame, length);
    if (!request) return;
    if (device_.faults().consumeSilence()) return;
    CommandResult result;
    if (device_.faults().failsCommand(request->code))
        result.status = Status::RequestFailed;
    else
        result = device_.execute(state_, request->code, request->payload, request->length);
    sendAnswer(static_cast<uint16_t>(result.status), request->sequence, result.payload);
    for (std::vector<uint8_t> const& notification : result.notifications)
        sendFrame(kNotificationCode, 0, notification.data(), notification.size());
    flush();
}

void DeviceSession::flush() {
    if (!batch_.empty()) send_(batch_.data(), batch_.size());
    batch_.clear();
}

void DeviceSession::sendAnswer(uint16_t code, uint16_t sequence, std::vector<uint8_t> const& payload) {
    size_t const chunk = maxFramePayload_.load();
    size_t offset = 0;
    // Every frame but the last is a continuation; an empty answer is one frame.
    while (payload.size() - offset > chunk) {
        sendFrame(kContinuationCode, sequence, payload.data() + offset, chunk);
        offset += chunk;
    }
    sendFrame(code, sequence, payload.data() + offset, payload.size() - offset);
}

void DeviceSession::sendFrame(uint16_t code, uint16_t sequence, uint8_t const* payload, size_t length) {
    if (closed()) return;
    encoded_.clear();
    frames_.seal(code, sequence, payload, length, encoded_);
    if (device_.faults().processFrame(encoded_) == FrameFate::Drop) return;
    size_t count = encoded_.size();
    uint64_t const limit = device_.faults().closeAfterBytes();
    if (limit != 0) count = static_cast<size_t>(std::min<uint64_t>(count, limit - std::min(limit, bytesSent_)));
    // Frames leave in batches: one write per frame would cost the link a
    // wake-up per frame, yet a batch much larger than this would keep the host
    // idle while the rest of a long answer is still being sealed.
    batch_.insert(batch_.end(), encoded_.begin(), encoded_.begin() + static_cast<std::ptrdiff_t>(count));
    if (batch_.size() >= kSendBatchSize) flush();
    bytesSent_ += count;
    if (limit != 0 && bytesSent_ >= limit) close();
}

}  // namespace sim
