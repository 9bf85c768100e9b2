#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

/// A bare TCP listener on one loopback address for the tests that need a peer
/// which does less than a device: accepts, reads raw bytes, closes.
class LoopbackListener {
public:
    LoopbackListener(char const* address, uint16_t port) {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int const one = 1;
        ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        ::inet_pton(AF_INET, address, &a.sin_addr);
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(listener_, 4) != 0)
            throw std::runtime_error(std::string("cannot listen on ") + address);
    }
    LoopbackListener(LoopbackListener const&) = delete;
    LoopbackListener& operator=(LoopbackListener const&) = delete;
    ~LoopbackListener() {
        closeConnection();
        ::close(listener_);
    }

    /// Waits up to 10 s for a connection; false when none came.
    bool accept() {
        pollfd p{listener_, POLLIN, 0};
        if (::poll(&p, 1, 10000) != 1) return false;
        connection_ = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        return connection_ >= 0;
    }

    /// Reads until `count` bytes have come or 10 s have passed.
    std::vector<uint8_t> read(size_t count) {
        std::vector<uint8_t> bytes;
        while (bytes.size() < count) {
            pollfd p{connection_, POLLIN, 0};
            if (::poll(&p, 1, 10000) != 1) break;
            uint8_t buffer[4096];
            ssize_t const got = ::read(connection_, buffer, std::min(sizeof buffer, count - bytes.size()));
            if (got <= 0) break;
            bytes.insert(bytes.end(), buffer, buffer + got);
        }
        return bytes;
    }

    void closeConnection() {
        if (connection_ >= 0) ::close(connection_);
        connection_ = -1;
    }

private:
    int listener_ = -1;
    int connection_ = -1;
};

/// An IPv4 address as connectLan takes it (network byte order).
inline unsigned int loopbackAddress(char const* address) {
    in_addr a{};
    ::inet_pton(AF_INET, address, &a);
    return a.s_addr;
}
