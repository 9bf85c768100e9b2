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

namespace simtest {

using Bytes = std::vector<uint8_t>;

inline constexpr int64_t kStartTime = 1'700'000'000;  // 2023-11-14 22:13:20 UTC

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

/// The 100-byte network record of 0x61 and 0x71.
inline Bytes networkRecord(std::string const& ssid, uint8_t security, std::string const& password = "pw",
                           bool metered = false) {
    Bytes out;
    ByteWriter(out)
        .writeString(ssid, 32)
        .writeString(password, 64)
        .write<uint8_t>(security)
        .write<uint8_t>(metered ? 1 : 0)
        .writeString("", 2);
    return out;
}

/// One frame as the host sees it; for a whole answer, its frames joined.
struct Frame {
    uint16_t code = 0xFFFF;
    uint16_t sequence = 0;
    Bytes payload;
};

/// A frame as the host sees it, line coding undone; nothing when it is not whole.
inline std::optional<Frame> decodeFrame(Bytes const& encoded) {
    if (encoded.size() < 2 || encoded.front() != 0 || encoded.back() != 0) return std::nullopt;
    Bytes frame(encoded.size());
    frame.resize(cobsDecode(encoded.data() + 1, encoded.size() - 2, frame.data()).value_or(0));
    if (frame.size() < 6 || frame.size() < 6u + readLe<uint16_t>(frame.data() + 4)) return std::nullopt;
    return Frame{readLe<uint16_t>(frame.data()), readLe<uint16_t>(frame.data() + 2),
                 Bytes(frame.begin() + 6, frame.begin() + 6 + readLe<uint16_t>(frame.data() + 4))};
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
            std::optional<Frame> const frame = decodeFrame(encoded);
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

private:
    std::unique_ptr<sim::DeviceSession> session_;
    std::vector<Bytes> received_;
    uint16_t sequence_ = 0;
};

/// A fresh device on a clock that moves only when told to, and a plain session on it.
struct Bench {
    explicit Bench(uint8_t revision = 0x41, uint16_t firmware = 0x0132) : Bench(model(revision, firmware)) {}
    explicit Bench(sim::SimulatedDeviceConfig config, int64_t start = kStartTime)
        : now(start), device(onClock(std::move(config))) {}
    void advance(int64_t seconds) { now += seconds; }

    std::atomic<int64_t> now;
    sim::SimulatedDevice device;
    TestHost host{device};

private:
    sim::SimulatedDeviceConfig onClock(sim::SimulatedDeviceConfig config) {
        config.clock = [this] { return now.load(); };
        return config;
    }
};

/// One request of a script and the code it must be answered with.
struct Step {
    uint16_t code;
    Bytes payload;
    uint16_t answer;
};

/// Runs the steps in order on one session; a refused request is answered with its code alone.
inline void runScript(TestHost& host, std::vector<Step> const& steps) {
    for (Step const& s : steps) {
        SCOPED_TRACE(testing::Message() << "code " << s.code << ", " << s.payload.size() << " bytes");
        Frame const answer = host.call(s.code, s.payload);
        EXPECT_EQ(answer.code, s.answer);
        EXPECT_TRUE(s.answer == 0 || answer.payload.empty());
    }
}

}  // namespace simtest
