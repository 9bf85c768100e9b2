// What the simulator's unit suites drive a device with: a clock that moves
// only when told to, and a host that builds request frames byte by byte and
// takes the device's answers apart without the application's own frame code.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "byte_io.h"
#include "cobs.h"
#include "simulated_device.h"
#include "test_bytes.h"

namespace simtest {

using Bytes = std::vector<uint8_t>;

/// 2023-11-14 22:13:20 UTC.
inline constexpr int64_t kStartTime = 1'700'000'000;

class ManualClock {
public:
    explicit ManualClock(int64_t start = kStartTime) : now_(std::make_shared<std::atomic<int64_t>>(start)) {}
    sim::DeviceClock function() const {
        return [now = now_] { return now->load(); };
    }
    void advance(int64_t seconds) { now_->fetch_add(seconds); }
    int64_t now() const { return now_->load(); }

private:
    std::shared_ptr<std::atomic<int64_t>> now_;
};

inline sim::SimulatedDeviceConfig model(uint8_t revision, uint16_t firmware = 0x0132) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.firmwareVersion = firmware;
    return config;
}

inline Bytes header(uint16_t code, uint16_t sequence, Bytes const& payload) {
    Bytes frame;
    ByteWriter(frame)
        .write<uint16_t>(code)
        .write<uint16_t>(sequence)
        .write<uint16_t>(static_cast<uint16_t>(payload.size()))
        .writeBytes(payload.data(), payload.size());
    return frame;
}

inline Bytes lineCode(Bytes const& frame) {
    Bytes out;
    cobsEncode(frame.data(), frame.size(), out);
    return out;
}

inline Bytes u32(uint32_t value) {
    Bytes out;
    ByteWriter(out).write<uint32_t>(value);
    return out;
}

inline Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (Bytes const& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

/// One frame as the host sees it; for a whole answer, its frames joined.
struct Frame {
    uint16_t code = 0xFFFF;
    uint16_t sequence = 0;
    Bytes payload;
};

/// A frame's line coding undone; empty when it is not a whole frame.
inline Bytes cobsBody(Bytes const& encoded) {
    if (encoded.size() < 2 || encoded.front() != 0 || encoded.back() != 0) return {};
    Bytes frame(encoded.size());
    frame.resize(cobsDecode(encoded.data() + 1, encoded.size() - 2, frame.data()).value_or(0));
    return frame;
}

inline std::optional<Frame> parseFrame(Bytes const& frame) {
    if (frame.size() < 6) return std::nullopt;
    size_t const length = readLe<uint16_t>(frame.data() + 4);
    if (frame.size() < 6 + length) return std::nullopt;
    return Frame{readLe<uint16_t>(frame.data()), readLe<uint16_t>(frame.data() + 2),
                 Bytes(frame.begin() + 6, frame.begin() + 6 + static_cast<std::ptrdiff_t>(length))};
}

/// A host on one plain session.
class TestHost {
public:
    explicit TestHost(sim::SimulatedDevice& device) {
        // The device hands over several frames at once; keep them one by one.
        session_ = device.openSession(sim::SessionMode::Plain, [this](uint8_t const* data, size_t length) {
            for (size_t start = 0; start < length;) {
                uint8_t const* end = static_cast<uint8_t const*>(std::memchr(data + start + 1, 0, length - start - 1));
                size_t const next = end ? static_cast<size_t>(end - data) + 1 : length;
                received_.emplace_back(data + start, data + next);
                start = next;
            }
        });
    }

    /// Sends bytes as they are; received() then holds the frames they brought back.
    void sendRaw(Bytes const& bytes) {
        received_.clear();
        session_->receive(bytes.data(), bytes.size());
    }
    std::vector<Bytes> const& received() const { return received_; }

    /// Sends a request and returns the frames it brought back, decoded.
    std::vector<Frame> exchange(uint16_t code, Bytes const& payload = {}) {
        sendRaw(lineCode(header(code, ++sequence_, payload)));
        std::vector<Frame> frames;
        for (Bytes const& encoded : received_) {
            std::optional<Frame> const frame = parseFrame(cobsBody(encoded));
            EXPECT_TRUE(frame.has_value());
            if (frame) frames.push_back(*frame);
        }
        return frames;
    }

    /// Sends a request and joins its answer; notifications after it are not part of it.
    Frame call(uint16_t code, Bytes const& payload = {}) {
        Frame answer;
        for (Frame const& f : exchange(code, payload)) {
            if (f.code == sim::kNotificationCode) continue;
            EXPECT_EQ(f.sequence, sequence_);
            answer.payload.insert(answer.payload.end(), f.payload.begin(), f.payload.end());
            if (f.code != sim::kContinuationCode) answer.code = f.code;
        }
        return answer;
    }
    uint16_t sequence() const { return sequence_; }

private:
    std::unique_ptr<sim::DeviceSession> session_;
    std::vector<Bytes> received_;
    uint16_t sequence_ = 0;
};

inline sim::SimulatedDeviceConfig onClock(sim::SimulatedDeviceConfig config, ManualClock const& clock) {
    config.clock = clock.function();
    return config;
}

/// A fresh device on a clock of its own, and a plain session on it.
struct Bench {
    explicit Bench(uint8_t revision = 0x41, uint16_t firmware = 0x0132) : Bench(model(revision, firmware)) {}
    explicit Bench(sim::SimulatedDeviceConfig config, int64_t start = kStartTime)
        : clock(start), device(onClock(std::move(config), clock)) {}
    ManualClock clock;
    sim::SimulatedDevice device;
    TestHost host{device};
};

/// One request of a script and the code it must be answered with.
struct Step {
    uint16_t code;
    Bytes payload;
    uint16_t answer;
};

inline void runScript(TestHost& host, std::vector<Step> const& steps) {
    for (Step const& s : steps)
        EXPECT_EQ(host.call(s.code, s.payload).code, s.answer)
            << "code " << s.code << ", " << s.payload.size() << " bytes";
}

}  // namespace simtest
