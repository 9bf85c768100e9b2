// What the simulator's unit suites drive a device with: a clock that moves
// only when told to, a host that builds request frames byte by byte and takes
// the device's answers apart without the application's own frame code, and
// the client's end of an ATT link.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "aes256_cbc.h"
#include "byte_io.h"
#include "cobs.h"
#include "crc16.h"
#include "sealed_block.h"
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

inline sim::SimulatedDeviceConfig onClock(sim::SimulatedDeviceConfig config, ManualClock const& clock) {
    config.clock = clock.function();
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

/// One frame as the host sees it.
struct Frame {
    uint16_t code = 0;
    uint16_t sequence = 0;
    Bytes payload;
};

/// The answer to one request, continuation frames joined.
struct Answer {
    uint16_t code = 0xFFFF;
    Bytes payload;
};

inline Bytes cobsBody(Bytes const& encoded) {
    EXPECT_GE(encoded.size(), 2u);
    EXPECT_EQ(encoded.front(), 0);
    EXPECT_EQ(encoded.back(), 0);
    Bytes frame(encoded.size());
    auto n = cobsDecode(encoded.data() + 1, encoded.size() - 2, frame.data());
    EXPECT_TRUE(n.has_value());
    frame.resize(n.value_or(0));
    return frame;
}

inline std::optional<Frame> parsePlain(Bytes const& frame, size_t trailer = 0) {
    if (frame.size() < 6) return std::nullopt;
    Frame f{readLe<uint16_t>(frame.data()), readLe<uint16_t>(frame.data() + 2), {}};
    size_t const length = readLe<uint16_t>(frame.data() + 4);
    if (frame.size() < 6 + length + trailer) return std::nullopt;
    f.payload.assign(frame.begin() + 6, frame.begin() + 6 + static_cast<std::ptrdiff_t>(length));
    return f;
}

/// A host on one session. In hub mode it sends the hello and runs its own
/// CBC chains; its first frame reaches the device garbled and its first
/// answer reaches the host garbled, as on the real link.
class TestHost {
public:
    /// In hub mode the hello goes out in pieces of `helloChunk` bytes.
    explicit TestHost(sim::SimulatedDevice& device, sim::SessionMode mode = sim::SessionMode::Plain,
                      std::optional<Zelmor::WifiAccessKey> key = std::nullopt, size_t helloChunk = 17,
                      uint8_t helloVersion = 0x02) {
        // The device hands over several frames at once; keep them one by one.
        session_ = device.openSession(mode, [this](uint8_t const* data, size_t length) {
            for (size_t start = 0; start < length;) {
                uint8_t const* end = static_cast<uint8_t const*>(std::memchr(data + start + 1, 0, length - start - 1));
                size_t const next = end ? static_cast<size_t>(end - data) + 1 : length;
                received_.emplace_back(data + start, data + next);
                start = next;
            }
        });
        if (mode == sim::SessionMode::Hub) {
            Zelmor::WifiAccessKey const k = key.value_or(device.accessKey());
            Bytes hello{helloVersion};
            hello.insert(hello.end(), k.keyId.begin(), k.keyId.end());
            for (size_t at = 0; at < hello.size(); at += helloChunk)
                session_->receive(hello.data() + at, std::min(helloChunk, hello.size() - at));
            encrypt_.init(k.key);
            Aes256Cbc::Iv iv;
            iv.fill(0x5C);
            encrypt_.setIv(iv.data());
            decrypt_.init(k.key);
            decrypt_.setIv(nullptr);
            encrypted_ = true;
        }
    }

    sim::DeviceSession& session() { return *session_; }

    /// The encoded bytes of a request as this host puts them on the link.
    Bytes encode(uint16_t code, uint16_t sequence, Bytes const& payload) {
        Bytes frame = header(code, sequence, payload);
        if (encrypted_) {
            frame.resize((payload.size() + 23) & ~size_t{15}, 0);
            writeLe<uint16_t>(frame.data() + frame.size() - 2, crc16Kermit(frame.data(), frame.size() - 2));
            encrypt_.encrypt(frame.data(), frame.size());
        }
        return lineCode(frame);
    }

    /// Sends bytes as they are; received() then holds what they brought back.
    void sendRaw(Bytes const& bytes) {
        received_.clear();
        session_->receive(bytes.data(), bytes.size());
    }

    /// Sends a request and returns the frames it brought back, decoded.
    std::vector<std::optional<Frame>> exchange(uint16_t code, Bytes const& payload = {}) {
        sendRaw(encode(code, ++sequence_, payload));
        std::vector<std::optional<Frame>> frames;
        for (Bytes const& encoded : received_) frames.push_back(decodeAnswer(encoded));
        return frames;
    }

    /// Sends a request and joins its answer; notifications after it are not part of it.
    Answer call(uint16_t code, Bytes const& payload = {}) {
        Answer answer;
        for (std::optional<Frame> const& f : exchange(code, payload)) {
            EXPECT_TRUE(f.has_value());
            if (!f || f->code == sim::kNotificationCode) continue;
            EXPECT_EQ(f->sequence, sequence_);
            answer.payload.insert(answer.payload.end(), f->payload.begin(), f->payload.end());
            if (f->code != sim::kContinuationCode) answer.code = f->code;
        }
        return answer;
    }

    /// Sends the three throwaway frames that bring the two CBC chains in step.
    void synchronise() {
        for (int i = 0; i < 3; ++i) exchange(0);
    }

    std::optional<Frame> decodeAnswer(Bytes const& encoded) {
        Bytes frame = cobsBody(encoded);
        if (!encrypted_) return parsePlain(frame);
        if (frame.empty() || frame.size() % 16 != 0) return std::nullopt;
        decrypt_.decrypt(frame.data(), frame.size());
        if (readLe<uint16_t>(frame.data() + frame.size() - 2) != crc16Kermit(frame.data(), frame.size() - 2))
            return std::nullopt;
        return parsePlain(frame, 2);
    }

    std::vector<Bytes> const& received() const { return received_; }
    uint16_t sequence() const { return sequence_; }

    /// The second step of a lock exchange with `key`, after asking for a challenge.
    Answer lockStep(uint16_t code, Zelmor::AuthKey const& key) {
        Answer challenge = call(0x30);
        EXPECT_EQ(challenge.code, 0);
        EXPECT_EQ(challenge.payload.size(), 32u);
        return call(code, seal(challenge.payload, key));
    }

    static Bytes seal(Bytes const& challenge, Zelmor::AuthKey const& key) {
        Bytes block(80, 0);
        for (size_t i = 0; i < 16; ++i) block[i] = static_cast<uint8_t>(0xA0 + i);
        std::memcpy(block.data() + 16, challenge.data(), 32);
        std::memcpy(block.data() + 48, key.data(), 32);
        Aes256Cbc cipher;
        cipher.init(kSharedAuthenticationKey);
        Aes256Cbc::Iv iv;
        for (size_t i = 0; i < iv.size(); ++i) iv[i] = static_cast<uint8_t>(0x31 * (i + 1));
        cipher.setIv(iv.data());
        cipher.encrypt(block.data(), block.size());
        return block;
    }

private:
    std::unique_ptr<sim::DeviceSession> session_;
    std::vector<Bytes> received_;
    uint16_t sequence_ = 0;
    bool encrypted_ = false;
    Aes256Cbc encrypt_;
    Aes256Cbc decrypt_;
};

/// A fresh device on a clock of its own, and a plain session on it.
struct Bench {
    explicit Bench(uint8_t revision = 0x41, uint16_t firmware = 0x0132) : Bench(model(revision, firmware)) {}
    explicit Bench(sim::SimulatedDeviceConfig config, int64_t start = kStartTime)
        : clock(start), device(onClock(std::move(config), clock)) {}
    ManualClock clock;
    sim::SimulatedDevice device;
    TestHost host{device};
};

/// The client's end of an ATT link; notifications that come while it waits
/// for an answer are kept per value handle.
class AttClient {
public:
    /// `patience`: how long to wait for each PDU.
    AttClient(int socket, std::chrono::milliseconds patience) : socket_(socket), patience_(patience) {}
    ~AttClient() { ::close(socket_); }
    AttClient(AttClient const&) = delete;
    AttClient& operator=(AttClient const&) = delete;

    void send(Bytes const& pdu) {
        ASSERT_EQ(::send(socket_, pdu.data(), pdu.size(), MSG_NOSIGNAL), static_cast<ssize_t>(pdu.size()));
    }

    /// The next PDU; nothing when the link ends or nothing comes in time.
    std::optional<Bytes> next() {
        pollfd wait{socket_, POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(patience_.count())) <= 0) return std::nullopt;
        Bytes pdu(1024);
        ssize_t const got = ::recv(socket_, pdu.data(), pdu.size(), MSG_DONTWAIT);
        hungUp_ = got == 0;
        if (got <= 0) return std::nullopt;
        pdu.resize(static_cast<size_t>(got));
        return pdu;
    }

    /// Sends a request; its answer in hexadecimal, empty when none comes.
    std::string ask(std::string const& request) {
        send(fromHex(request));
        while (std::optional<Bytes> pdu = next()) {
            if (pdu->at(0) != 0x1B) return hex(*pdu);
            keep(*pdu);
        }
        return "";
    }

    /// Waits for one more notification of `handle`; false on a timeout or hang-up.
    bool awaitNotification(uint16_t handle) {
        size_t const before = notifications(handle).size();
        while (notifications(handle).size() == before) {
            std::optional<Bytes> pdu = next();
            if (!pdu) return false;
            if (pdu->at(0) == 0x1B) keep(*pdu);
        }
        return true;
    }

    /// Waits until the link ends, dropping whatever still comes.
    bool awaitHangUp() {
        while (next()) {
        }
        return hungUp_;
    }

    void enable(uint16_t configuration) {
        EXPECT_EQ(ask(hex(Bytes{0x12, static_cast<uint8_t>(configuration), 0x00, 0x01, 0x00})), "13");
    }

    /// Writes `bytes` to `handle` with write commands of at most `piece` bytes.
    void writeCommands(uint16_t handle, Bytes const& bytes, size_t piece) {
        for (size_t at = 0; at < bytes.size(); at += piece) {
            Bytes pdu{0x52, static_cast<uint8_t>(handle), 0x00};
            pdu.insert(pdu.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), at + piece)));
            send(pdu);
        }
    }

    std::vector<Bytes> const& notifications(uint16_t handle) { return notifications_[handle]; }

private:
    void keep(Bytes const& pdu) {
        ASSERT_GE(pdu.size(), 3u);
        notifications_[readLe<uint16_t>(pdu.data() + 1)].emplace_back(pdu.begin() + 3, pdu.end());
    }

    int socket_;
    std::chrono::milliseconds patience_;
    bool hungUp_ = false;
    std::map<uint16_t, std::vector<Bytes>> notifications_;
};

}  // namespace simtest
