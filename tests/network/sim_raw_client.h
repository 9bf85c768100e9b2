// A bare TCP host for the simulator's network tests: connects to a loopback
// address, writes exactly the bytes it is given and reads what comes back,
// so that the tests see the connection itself (where it closes, how many bytes
// came), not what a client library makes of it.
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

#include "byte_io.h"
#include "cobs.h"

class SimRawClient {
public:
    static constexpr int kWaitMs = 10000;

    SimRawClient(char const* address, uint16_t port) {
        socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        ::inet_pton(AF_INET, address, &a.sin_addr);
        if (::connect(socket_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0)
            throw std::runtime_error(std::string("cannot connect to ") + address);
    }
    SimRawClient(SimRawClient const&) = delete;
    SimRawClient& operator=(SimRawClient const&) = delete;
    ~SimRawClient() { ::close(socket_); }

    void send(std::vector<uint8_t> const& bytes) {
        if (::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
            throw std::runtime_error("short write");
    }

    /// True once something has arrived (or the connection was closed) within 10 s.
    bool waitReadable() {
        pollfd p{socket_, POLLIN, 0};
        return ::poll(&p, 1, kWaitMs) == 1;
    }

    /// Everything until the device closes the connection; throws when it has
    /// not closed it after 10 s of silence.
    std::vector<uint8_t> readToEnd() {
        std::vector<uint8_t> bytes;
        for (;;) {
            pollfd p{socket_, POLLIN, 0};
            if (::poll(&p, 1, kWaitMs) != 1) throw std::runtime_error("the connection stayed open");
            uint8_t buffer[4096];
            ssize_t const got = ::read(socket_, buffer, sizeof buffer);
            if (got <= 0) return bytes;
            bytes.insert(bytes.end(), buffer, buffer + got);
        }
    }

    /// A plain request frame as a LAN host puts it on the link.
    static std::vector<uint8_t> plainFrame(uint16_t code, uint16_t sequence, std::vector<uint8_t> const& payload) {
        std::vector<uint8_t> frame;
        ByteWriter(frame)
            .write<uint16_t>(code)
            .write<uint16_t>(sequence)
            .write<uint16_t>(static_cast<uint16_t>(payload.size()))
            .writeBytes(payload.data(), payload.size());
        std::vector<uint8_t> encoded;
        cobsEncode(frame.data(), frame.size(), encoded);
        return encoded;
    }

private:
    int socket_ = -1;
};
