#include "zelmor_impl.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

/// Closes a descriptor when the scope ends, unless released.
class FdGuard {
public:
    explicit FdGuard(int fd) : fd_(fd) {}
    FdGuard(FdGuard const&) = delete;
    FdGuard& operator=(FdGuard const&) = delete;
    ~FdGuard() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }

private:
    int fd_;
};

bool setOption(int fd, int level, int name) {
    int const one = 1;
    return ::setsockopt(fd, level, name, &one, sizeof one) == 0;
}

}  // namespace

ZelmorImpl::ZelmorImpl(std::string hubHost) : hubHost_(std::move(hubHost)) {}

ZelmorImpl::~ZelmorImpl() {
    reason_.store(DisconnectReason::ClosedLocally);
    running_.store(false);
    joinConnectionThread();
    stopThread();
    joinThread();
}

bool ZelmorImpl::openBluetooth() { return false; }

void ZelmorImpl::connectHub(WifiAccessKey const& accessKey) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* results = nullptr;
    std::string const service = std::to_string(kHubPort);
    unsigned int ip = 0;
    bool found = false;
    if (::getaddrinfo(hubHost_.c_str(), service.c_str(), &hints, &results) == 0) {
        for (addrinfo const* a = results; a; a = a->ai_next) {
            if (a->ai_family != AF_INET) continue;
            ip = reinterpret_cast<sockaddr_in const*>(a->ai_addr)->sin_addr.s_addr;
            found = true;
            break;
        }
        ::freeaddrinfo(results);
    }
    if (!found) {
        notifyDisconnected(DisconnectReason::ConnectFailed);
        return;
    }
    hub_.store(true);
    connectWifi(ip, kHubPort, accessKey);
}

void ZelmorImpl::connectLan(unsigned int ip) {
    hub_.store(false);
    connectWifi(ip, kDevicePort, WifiAccessKey{});
}

void ZelmorImpl::connectBle(unsigned long) {
    {
        std::lock_guard lock(socketMutex_);
        socket_ = -1;
    }
    hub_.store(false);
    notifyDisconnected(DisconnectReason::ConnectFailed);
}

void ZelmorImpl::connectWifi(unsigned int ip, unsigned short port, WifiAccessKey const& accessKey) {
    // A link that ended by itself (peer close, read error) leaves its thread
    // finished but joinable; starting over it would end the process.
    joinConnectionThread();
    reason_.store(DisconnectReason::ConnectionLost);
    running_.store(true);
    std::lock_guard lock(threadMutex_);
    // A reconnect from the disconnect callback runs on the finishing thread,
    // which has nothing left to do but return.
    if (connectionThread_.joinable()) connectionThread_.detach();
    connectionThread_ = std::thread([this, ip, port, accessKey] { tcpThread(ip, port, accessKey); });
}

void ZelmorImpl::disconnect() {
    bool tcp;
    {
        std::lock_guard lock(socketMutex_);
        tcp = socket_ != -1;
    }
    if (!tcp && !running_.load()) return;
    reason_.store(DisconnectReason::ClosedLocally);
    running_.store(false);
    joinConnectionThread();
}

void ZelmorImpl::joinConnectionThread() {
    std::lock_guard lock(threadMutex_);
    // From the link's own callbacks the thread cannot wait for itself; it
    // stays joinable for the next connect or the destructor.
    if (connectionThread_.joinable() && connectionThread_.get_id() != std::this_thread::get_id())
        connectionThread_.join();
}

void ZelmorImpl::sendData(uint8_t const* data, unsigned long length) {
    ssize_t written;
    {
        std::lock_guard lock(socketMutex_);
        if (socket_ == -1) return;
        written = ::send(socket_, data, length, MSG_NOSIGNAL);
    }
    if (written == static_cast<ssize_t>(length)) return;
    // The frame is not retried: the link is ended instead, as by the user.
    reason_.store(DisconnectReason::ClosedLocally);
    // On the TCP thread itself (the hub hello) the loop sees the cleared flag.
    if (running_.exchange(false) && connectionThreadId_.load() != std::this_thread::get_id())
        joinConnectionThread();
}

void ZelmorImpl::advanceReason(DisconnectReason from, DisconnectReason to) {
    reason_.compare_exchange_strong(from, to);
}

int16_t ZelmorImpl::getRssi() { return -32768; }

void ZelmorImpl::tcpThread(unsigned int ip, unsigned short port, WifiAccessKey accessKey) {
    connectionThreadId_.store(std::this_thread::get_id());
    int const fd = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (fd >= 0 && setOption(fd, IPPROTO_TCP, TCP_NODELAY) && setOption(fd, IPPROTO_TCP, TCP_QUICKACK)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = ip;
        advanceReason(DisconnectReason::ConnectionLost, DisconnectReason::ConnectFailed);
        int connected;
        do {
            connected = ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
        } while (connected != 0 && errno == EINTR);
        if (connected == 0) {
            advanceReason(DisconnectReason::ConnectFailed, DisconnectReason::ConnectionLost);
            if (running_.load()) runLink(fd, accessKey);
        }
    }
    if (fd >= 0) {
        std::lock_guard lock(socketMutex_);
        socket_ = -1;
        ::close(fd);
    }
    stopThread();
    connectionThreadId_.store(std::thread::id());
    notifyDisconnected(reason_.load());
}

void ZelmorImpl::runLink(int fd, WifiAccessKey const& accessKey) {
    int const flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) return;
    FdGuard epoll(::epoll_create1(EPOLL_CLOEXEC));
    if (epoll.get() < 0) return;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) return;

    {
        std::lock_guard lock(socketMutex_);
        socket_ = fd;
    }
    startThread();
    setRemoteLink(hub_.load());
    if (hub_.load()) startLinkEncryption(accessKey);
    notifyConnected();

    uint8_t buffer[kReadBufferSize];
    while (running_.load()) {
        epoll_event ready{};
        int const n = ::epoll_wait(epoll.get(), &ready, 1, kEpollWaitMs);
        if (n < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (n == 0) continue;
        ssize_t const got = ::read(fd, buffer, sizeof buffer);
        if (got > 0) {
            receiveBytes(buffer, static_cast<size_t>(got));
        } else if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
            continue;
        } else {
            break;  // the peer closed the link, or it failed
        }
    }
    running_.store(false);
}
