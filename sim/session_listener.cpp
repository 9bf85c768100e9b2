#include "session_listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/core.h>

#include "loopback_address.h"

namespace sim {

namespace {

constexpr int kBacklog = 16;
// Pause after the system refused a connection for want of descriptors or
// memory, so that the loop does not spin until some are free again.
constexpr auto kAcceptRetryPause = std::chrono::milliseconds(50);

}  // namespace

SessionListener::SessionListener(std::string address, uint16_t port, SessionRoute route)
    : address_(std::move(address)), port_(port), route_(std::move(route)) {}

SessionListener::~SessionListener() { stop(); }

bool SessionListener::start() {
    if (acceptThread_.joinable()) return true;
    std::optional<uint32_t> const address = parseLoopbackAddress(address_);
    if (!address) {
        fail(fmt::format("Cannot listen on {}: not a numeric loopback address (127.0.0.0/8)", address_));
        return false;
    }
    std::string error;
    uint16_t bound = 0;
    int const fd = listenOn({*address, port_}, kBacklog, bound, error);
    if (fd < 0) {
        fail(fmt::format("Cannot listen on {}: {}", endpointText({*address, port_}), error));
        return false;
    }
    listener_ = fd;
    boundPort_.store(bound);
    stopping_.store(false);
    acceptThread_ = std::thread([this] { acceptLoop(); });
    return true;
}

void SessionListener::stop() {
    stopping_.store(true);
    // Wakes the blocked accept; the descriptor is closed once the thread is gone.
    if (listener_ >= 0) ::shutdown(listener_, SHUT_RDWR);
    if (acceptThread_.joinable()) acceptThread_.join();
    if (listener_ >= 0) ::close(listener_);
    listener_ = -1;
    boundPort_.store(0);
    std::vector<std::unique_ptr<SessionConnection>> connections;
    {
        std::lock_guard lock(mutex_);
        connections.swap(connections_);
    }
    connections.clear();  // each stops, joins its threads and closes its socket
}

std::string SessionListener::error() const {
    std::lock_guard lock(mutex_);
    return error_;
}

void SessionListener::fail(std::string text) {
    std::lock_guard lock(mutex_);
    error_ = std::move(text);
}

void SessionListener::acceptLoop() {
    while (!stopping_.load()) {
        int const fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (stopping_.load()) break;
            if (errno != EINTR && errno != ECONNABORTED) std::this_thread::sleep_for(kAcceptRetryPause);
            continue;
        }
        // Answers are whole frames written at once; holding them back to fill a
        // segment would only add latency.
        int const one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::lock_guard lock(mutex_);
        std::erase_if(connections_, [](auto const& connection) { return connection->finished(); });
        connections_.push_back(std::make_unique<SessionConnection>(fd, route_));
    }
}

}  // namespace sim
