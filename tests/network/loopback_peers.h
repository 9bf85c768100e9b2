// The peers the network tests put on a loopback address: a bare TCP socket
// and the application's own device connection.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "callback_result.h"
#include "zelmor_impl.h"

/// An IPv4 address as connectLan takes it (network byte order).
inline uint32_t loopbackAddress(char const* address) {
    in_addr a{};
    ::inet_pton(AF_INET, address, &a);
    return a.s_addr;
}

/// A TCP socket that shows the connection itself: where it closes, how many
/// bytes came. Every wait gives up after 10 s of silence.
class RawSocket {
public:
    static RawSocket listening(char const* address, uint16_t port) {
        RawSocket s;
        int const one = 1;
        ::setsockopt(s.fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in const a = endpoint(address, port);
        if (::bind(s.fd_, reinterpret_cast<sockaddr const*>(&a), sizeof a) != 0 || ::listen(s.fd_, 4) != 0)
            throw std::runtime_error(std::string("cannot listen on ") + address);
        return s;
    }
    /// `receiveBuffer`: the socket's receive buffer size, when not 0.
    static RawSocket connected(char const* address, uint16_t port, int receiveBuffer = 0) {
        RawSocket s;
        if (receiveBuffer != 0) ::setsockopt(s.fd_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_in const a = endpoint(address, port);
        if (::connect(s.fd_, reinterpret_cast<sockaddr const*>(&a), sizeof a) != 0)
            throw std::runtime_error(std::string("cannot connect to ") + address);
        return s;
    }
    RawSocket(RawSocket&& other) noexcept : fd_(std::exchange(other.fd_, -1)), closed_(other.closed_) {}
    ~RawSocket() {
        if (fd_ >= 0) ::close(fd_);
    }

    RawSocket accept() {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, 10000) != 1) throw std::runtime_error("nobody connected");
        return RawSocket(::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
    }

    void close() { ::close(std::exchange(fd_, -1)); }

    void send(std::vector<uint8_t> const& bytes) {
        if (::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
            throw std::runtime_error("short write");
    }

    /// Up to `count` bytes; fewer when the peer closes or stays silent.
    std::vector<uint8_t> read(size_t count = SIZE_MAX) {
        std::vector<uint8_t> bytes;
        pollfd p{fd_, POLLIN, 0};
        while (bytes.size() < count && !closed_ && ::poll(&p, 1, 10000) == 1) {
            uint8_t buffer[4096];
            ssize_t const got = ::read(fd_, buffer, std::min(sizeof buffer, count - bytes.size()));
            closed_ = got <= 0;
            if (got > 0) bytes.insert(bytes.end(), buffer, buffer + got);
        }
        return bytes;
    }
    bool closed() const { return closed_; }

private:
    RawSocket() : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    explicit RawSocket(int fd) : fd_(fd) {}

    static sockaddr_in endpoint(char const* address, uint16_t port) {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        a.sin_addr.s_addr = loopbackAddress(address);
        return a;
    }

    int fd_;
    bool closed_ = false;
};

/// The device connection with requests of a shorter time-out: a test that
/// expects no answer need not wait the eight seconds a real request is given.
class ShortWaitZelmor : public ZelmorImpl {
public:
    using ZelmorImpl::ZelmorImpl;

    void request(uint16_t command, uint32_t timeoutMs, std::function<void(ResponseCode)> done) {
        enqueue(command, {}, timeoutMs, [done](ResponseCode code, uint8_t const*, size_t) { done(code); });
    }
};

/// The device connection with what its callbacks reported, and requests that
/// wait for their answers (and throw when none comes).
struct SimLink {
    using Code = Zelmor::ResponseCode;
    using Reason = Zelmor::DisconnectReason;

    SimLink() : zelmor("127.0.0.1") {
        zelmor.setConnectedCallback(connected.callback());
        zelmor.setDisconnectCallback([this, done = ended.callback()](Reason reason) {
            ++ends;
            done(reason);
        });
    }

    void connectLan(char const* address) {
        zelmor.connectLan(loopbackAddress(address));
        connected.get();
    }
    void connectHub(Zelmor::WifiAccessKey const& key) {
        zelmor.connectHub(key);
        connected.get();
    }

    std::tuple<Code, Zelmor::DeviceInfo> info() {
        CallbackResult<Code, Zelmor::DeviceInfo const&> result;
        zelmor.requestGetInfo(result.callback());
        return result.get();
    }
    Code request(uint16_t command, uint32_t timeoutMs = ZelmorRequest::kDefaultTimeoutMs) {
        CallbackResult<Code> result;
        zelmor.request(command, timeoutMs, result.callback());
        return std::get<0>(result.get());
    }

    CallbackResult<> connected;
    CallbackResult<Reason> ended;
    std::atomic<int> ends{0};
    // Last: its callbacks use the members above until it is gone.
    ShortWaitZelmor zelmor;
};
