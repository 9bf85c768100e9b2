#include "socket_pair_bluetooth_host.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace sim {

namespace {

// Stands for the adapter's HCI descriptor; never used as a descriptor.
constexpr int kAdapterHandle = 0;

}  // namespace

SocketPairBluetoothHost::SocketPairBluetoothHost(PeerFactory peerFactory) : peerFactory_(std::move(peerFactory)) {}

int SocketPairBluetoothHost::openAdapter() {
    std::lock_guard lock(mutex_);
    if (adapterPresent_) return kAdapterHandle;
    errno = ENODEV;
    return -1;
}

void SocketPairBluetoothHost::closeAdapter(int) {}

int SocketPairBluetoothHost::openAttSocket() {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) return -1;
    int const flags = ::fcntl(pair[0], F_GETFL);
    if (flags < 0 || ::fcntl(pair[0], F_SETFL, flags | O_NONBLOCK) != 0) {
        int const error = errno;
        ::close(pair[0]);
        ::close(pair[1]);
        errno = error;
        return -1;
    }
    std::lock_guard lock(mutex_);
    peerEnds_[pair[0]] = pair[1];
    return pair[0];
}

int SocketPairBluetoothHost::connectAttSocket(int socket, uint64_t address, bool publicAddress) {
    int peer;
    {
        std::lock_guard lock(mutex_);
        auto const found = peerEnds_.find(socket);
        if (found == peerEnds_.end()) return EBADF;
        peer = found->second;
        peerEnds_.erase(found);
    }
    peerFactory_(peer, address, publicAddress);
    return EINPROGRESS;
}

bool SocketPairBluetoothHost::connectionHandle(int socket, uint16_t& handle) {
    {
        std::unique_lock lock(mutex_);
        ++waiting_;
        released_.wait(lock, [this] { return !hold_; });
        --waiting_;
    }
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) return false;
    handle = kConnectionHandle;
    return true;
}

bool SocketPairBluetoothHost::readRssi(int, uint16_t, int8_t& rssi) {
    std::lock_guard lock(mutex_);
    if (!rssiSucceeds_) return false;
    rssi = rssi_;
    return true;
}

void SocketPairBluetoothHost::setAdapterPresent(bool present) {
    std::lock_guard lock(mutex_);
    adapterPresent_ = present;
}

void SocketPairBluetoothHost::holdConnections(bool hold) {
    {
        std::lock_guard lock(mutex_);
        hold_ = hold;
    }
    released_.notify_all();
}

bool SocketPairBluetoothHost::connectionHeld() const {
    std::lock_guard lock(mutex_);
    return waiting_ > 0;
}

void SocketPairBluetoothHost::setRssi(int8_t rssi, bool readSucceeds) {
    std::lock_guard lock(mutex_);
    rssi_ = rssi;
    rssiSucceeds_ = readSucceeds;
}

}  // namespace sim
