#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "byte_io.h"
#include "callback_result.h"
#include "cobs.h"
#include "frame_codec.h"
#include "zelmor_request.h"

/// The request engine with a scripted device behind its transport hooks: every
/// frame the engine sends is decoded and handed to a responder, which answers
/// (or not) by feeding bytes to the receive path. Plain frames only.
class ScriptedZelmor : public ZelmorRequest {
public:
    struct Sent {
        uint16_t command = 0;
        uint16_t sequence = 0;
        std::vector<uint8_t> payload;
    };
    using Responder = std::function<void(ScriptedZelmor&, Sent const&)>;

    explicit ScriptedZelmor(Responder responder = {}) : responder_(std::move(responder)) { startThread(); }
    ~ScriptedZelmor() override {
        stopThread();
        joinThread();
    }

    bool openBluetooth() override { return false; }
    void connectHub(WifiAccessKey const&) override {}
    void connectLan(unsigned int) override {}
    void connectBle(unsigned long) override {}
    void disconnect() override {}
    int16_t getRssi() override { return -32768; }

    void sendData(uint8_t const* data, unsigned long length) override {
        std::vector<uint8_t> frame(length);
        auto n = cobsDecode(data + 1, length - 2, frame.data());
        Sent sent;
        sent.command = readLe<uint16_t>(frame.data());
        sent.sequence = readLe<uint16_t>(frame.data() + 2);
        sent.payload.assign(frame.begin() + 6, frame.begin() + static_cast<long>(*n));
        Responder responder;
        {
            std::lock_guard lock(mutex_);
            sent_.push_back(sent);
            responder = responder_;
        }
        if (responder) responder(*this, sent);
    }

    /// One plain answer frame as it comes over the link.
    static std::vector<uint8_t> frame(uint16_t code, uint16_t sequence, std::vector<uint8_t> const& payload = {}) {
        std::vector<uint8_t> wire;
        encodeFrame({code, sequence, static_cast<uint16_t>(payload.size())}, payload.data(), nullptr, wire);
        return wire;
    }

    /// Sends one plain answer frame to the receive path.
    void answer(uint16_t code, uint16_t sequence, std::vector<uint8_t> const& payload = {}) {
        feed(frame(code, sequence, payload));
    }

    /// Raw bytes to the receive path, as if they had come from the link.
    void feed(std::vector<uint8_t> const& bytes) { receiveBytes(bytes.data(), bytes.size()); }

    std::vector<Sent> sent() const {
        std::lock_guard lock(mutex_);
        return sent_;
    }

    using ZelmorRequest::enqueue;
    using ZelmorRequest::joinThread;
    using ZelmorRequest::stopThread;

private:
    mutable std::mutex mutex_;
    Responder responder_;
    std::vector<Sent> sent_;
};
