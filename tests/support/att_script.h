#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "test_bytes.h"

// The device side of a GATT client's link in tests: the peer's end of the
// client's socket pair, driven by scripts of ATT PDUs in spaced hexadecimal.
// A script lists what the client must send, byte for byte, and what the
// device answers, in order.

struct AttStep {
    bool fromClient;
    std::string bytes;
};
using AttScript = std::vector<AttStep>;

/// A PDU the client must send next.
inline AttStep fromClient(std::string bytes) { return {true, std::move(bytes)}; }
/// A PDU the device sends.
inline AttStep toClient(std::string bytes) { return {false, std::move(bytes)}; }

inline AttScript operator+(AttScript head, AttScript const& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

/// `count` bytes first, first + 1, ... in spaced hexadecimal, for long values.
inline std::string byteRun(uint8_t first, size_t count) {
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(first + i);
    return hex(bytes);
}

/// The device's end of one connection. Owns the descriptor.
class AttPeer {
public:
    static constexpr std::chrono::seconds kPatience{10};

    explicit AttPeer(int socket) : socket_(socket) {}
    AttPeer(AttPeer&& other) noexcept : socket_(std::exchange(other.socket_, -1)) {}
    AttPeer& operator=(AttPeer&&) = delete;
    ~AttPeer() { close(); }

    void close() {
        if (socket_ >= 0) ::close(std::exchange(socket_, -1));
    }

    void send(std::string const& bytes) {
        std::vector<uint8_t> const pdu = fromHex(bytes);
        ASSERT_EQ(::send(socket_, pdu.data(), pdu.size(), MSG_NOSIGNAL), static_cast<ssize_t>(pdu.size()));
    }

    /// The client's next PDU; nothing when none comes in time or the client closed.
    std::optional<std::vector<uint8_t>> receive() {
        auto const deadline = std::chrono::steady_clock::now() + kPatience;
        pollfd ready{socket_, POLLIN, 0};
        while (std::chrono::steady_clock::now() < deadline) {
            if (::poll(&ready, 1, 50) <= 0) continue;
            if ((ready.revents & POLLIN) == 0) return std::nullopt;
            uint8_t buffer[1024];
            ssize_t const received = ::recv(socket_, buffer, sizeof buffer, 0);
            if (received < 0) return std::nullopt;
            return std::vector<uint8_t>(buffer, buffer + received);
        }
        return std::nullopt;
    }

    /// True once the client has closed its end.
    bool waitForClose() {
        auto const deadline = std::chrono::steady_clock::now() + kPatience;
        pollfd ready{socket_, 0, 0};
        while (std::chrono::steady_clock::now() < deadline) {
            if (::poll(&ready, 1, 50) > 0 && (ready.revents & POLLHUP) != 0) return true;
        }
        return false;
    }

    /// Plays the script; the first difference fails with both PDUs in hexadecimal.
    testing::AssertionResult play(AttScript const& script) {
        for (size_t i = 0; i < script.size(); ++i) {
            AttStep const& step = script[i];
            std::string const expected = hex(fromHex(step.bytes));
            if (!step.fromClient) {
                send(step.bytes);
                continue;
            }
            std::optional<std::vector<uint8_t>> const got = receive();
            if (!got)
                return testing::AssertionFailure() << "step " << i << ": expected [" << expected << "], got nothing";
            if (hex(*got) != expected)
                return testing::AssertionFailure()
                       << "step " << i << ":\n  expected [" << expected << "]\n  got      [" << hex(*got) << "]";
        }
        return testing::AssertionSuccess();
    }

private:
    int socket_;
};

/// The peer ends a test host hands over, one per connection, with the
/// address the client connected to.
class AttPeers {
public:
    struct Connection {
        AttPeer peer;
        uint64_t address;
        bool publicAddress;
    };

    /// For the host's peer factory; called on the client's connection thread.
    void adopt(int socket, uint64_t address, bool publicAddress) {
        std::lock_guard lock(mutex_);
        waiting_.push_back(Connection{AttPeer(socket), address, publicAddress});
        arrived_.notify_all();
    }

    std::optional<Connection> next() {
        std::unique_lock lock(mutex_);
        if (!arrived_.wait_for(lock, AttPeer::kPatience, [this] { return !waiting_.empty(); })) return std::nullopt;
        Connection connection = std::move(waiting_.front());
        waiting_.pop_front();
        return connection;
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<Connection> waiting_;
};
