// A device port that takes no connection, as that of a device gone off the
// network: the listener's one place in its backlog is taken, so the system
// drops every further SYN and a connect to it waits for an answer.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <fmt/core.h>

class UnansweredAddress {
public:
    UnansweredAddress(char const* address, uint16_t port) {
        endpoint_.sin_family = AF_INET;
        endpoint_.sin_port = htons(port);
        endpoint_.sin_addr.s_addr = ::inet_addr(address);
        int const one = 1;
        ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        if (::bind(listener_, reinterpret_cast<sockaddr const*>(&endpoint_), sizeof endpoint_) != 0 ||
            ::listen(listener_, 0) != 0 ||
            ::connect(filler_, reinterpret_cast<sockaddr const*>(&endpoint_), sizeof endpoint_) != 0)
            throw std::runtime_error(std::string("cannot fill the backlog of ") + address);
    }
    ~UnansweredAddress() {
        ::close(filler_);
        ::close(listener_);
    }
    UnansweredAddress(UnansweredAddress const&) = delete;
    UnansweredAddress& operator=(UnansweredAddress const&) = delete;

    /// True while somebody's connect to the address waits (SYN_SENT).
    bool connectPending() const {
        std::string const remote = fmt::format("{:08X}:{:04X}", endpoint_.sin_addr.s_addr, ntohs(endpoint_.sin_port));
        std::ifstream table("/proc/net/tcp");
        std::string line;
        std::getline(table, line);
        while (std::getline(table, line)) {
            std::istringstream fields(line);
            std::string slot, local, peer, state;
            fields >> slot >> local >> peer >> state;
            if (peer == remote && state == "02") return true;
        }
        return false;
    }

    /// The address answers again: the filler is taken off the backlog, so a
    /// connect still waiting gets through with the system's next SYN.
    void answerAgain() {
        int const taken = ::accept(listener_, nullptr, nullptr);
        if (taken >= 0) ::close(taken);
    }

    /// True when a connection besides the filler came through; takes it.
    bool reached() {
        pollfd waiting{listener_, POLLIN, 0};
        if (::poll(&waiting, 1, 0) != 1) return false;
        int const taken = ::accept(listener_, nullptr, nullptr);
        if (taken < 0) return false;
        ::close(taken);
        return true;
    }

private:
    sockaddr_in endpoint_{};
    int const listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int const filler_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};
