#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "cobs.h"
#include "device_commands.h"
#include "frame_layer.h"

namespace sim {

class SimulatedDevice;

/// Plain: LAN and Bluetooth LE links. Hub: the relayed link, which opens with
/// a hello naming the access key and is encrypted with that key.
enum class SessionMode : uint8_t { Plain, Hub };

/// Receives the encoded bytes a device sends on one link.
using SendFunction = std::function<void(uint8_t const* data, size_t length)>;

/// One connection to a simulated device: takes the host's bytes, runs the
/// commands they carry and sends the answers, synchronously on the caller's
/// thread. `receive` must not be called from two threads at once, but `send`
/// may call it again (an in-process host answering at once): those bytes are
/// taken in after the current ones. `closed` and `setMaxFramePayload` may be
/// called from any thread. The device must outlive its sessions.
class DeviceSession {
public:
    static constexpr size_t kHelloSize = 17;
    static constexpr uint8_t kHelloVersion = 0x02;
    /// Answer bytes are handed to the send function in pieces of about this size.
    static constexpr size_t kSendBatchSize = 65536;

    DeviceSession(SimulatedDevice& device, SessionMode mode, SendFunction send, size_t maxFramePayload);

    void receive(uint8_t const* data, size_t length);
    /// True once the session has ended itself; everything after is ignored.
    bool closed() const { return closed_.load(); }
    void close() { closed_.store(true); }
    /// Longest payload of one answer frame (1..65535); longer answers are split.
    void setMaxFramePayload(size_t maxPayload);
    SessionMode mode() const { return mode_; }

private:
    void consume(uint8_t const* data, size_t length);
    size_t takeHello(uint8_t const* data, size_t length);
    void handleFrame(uint8_t* frame, size_t length);
    void sendAnswer(uint16_t code, uint16_t sequence, std::vector<uint8_t> const& payload);
    void sendFrame(uint16_t code, uint16_t sequence, uint8_t const* payload, size_t length);
    void flush();

    SimulatedDevice& device_;
    SessionMode const mode_;
    SendFunction send_;
    std::atomic<size_t> maxFramePayload_;
    std::atomic<bool> closed_{false};
    std::vector<uint8_t> pending_;
    bool receiving_ = false;
    std::vector<uint8_t> hello_;
    bool linkOpen_;
    CobsStreamDecoder decoder_;
    FrameLayer frames_;
    SessionState state_;
    uint64_t bytesSent_ = 0;
    std::vector<uint8_t> encoded_;
    std::vector<uint8_t> batch_;
};

}  // namespace sim
