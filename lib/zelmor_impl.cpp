#include "zelmor_impl.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <vector>

#include "millisecond_setting.h"
#include "zelmor_gatt.h"

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

BleUUID const kServiceUuid = *BleUUID::parse(kZelmorServiceUuid);
BleUUID const kLiveDataUuid = *BleUUID::parse(kZelmorLiveDataUuid);
BleUUID const kCommandUuid = *BleUUID::parse(kZelmorCommandUuid);

/* The GATT client numbers a lost link 1 and a link that never came up 2, the
   device interface the reverse; values it does not define are not reported. */
std::optional<Zelmor::DisconnectReason> deviceReason(BluetoothLE::DisconnectReason reason) {
    using Ble = BluetoothLE::DisconnectReason;
    using Device = Zelmor::DisconnectReason;
    switch (reason) {
        case Ble::ClosedLocally:
            return Device::ClosedLocally;
        case Ble::LinkLost:
            return Device::ConnectionLost;
        case Ble::NeverConnected:
            return Device::ConnectFailed;
        case Ble::ErrorResponse:
            return Device::DeviceProtocolError;
        case Ble::ProtocolViolation:
            return Device::UnexpectedProtocolData;
        case Ble::WriteFailed:
            return Device::WriteFailed;
        case Ble::Reserved:
            return Device::Reserved;
    }
    return std::nullopt;
}

}  // namespace

ZelmorImpl::ZelmorImpl(std::string hubHost, BluetoothHost& bluetoothHost)
    : hubHost_(std::move(hubHost)),
      connectTimeoutMs_(millisecondSetting(std::getenv(kConnectTimeoutVariable), kConnectTimeoutMs)),
      ble_(bluetoothHost) {
    ble_.setConnectedCallback([this] { bleConnected(); });
    ble_.setDisconnectedCallback([this](BluetoothLE::DisconnectReason reason) { bleDisconnected(reason); });
}

ZelmorImpl::~ZelmorImpl() {
    reason_.store(DisconnectReason::ClosedLocally);
    running_.store(false);
    joinConnectionThread();
    // A Bluetooth LE link ends here, while everything its handlers use exists.
    ble_.disconnect();
    stopThread();
    joinThread();
}

bool ZelmorImpl::openBluetooth() { return ble_.openAdapter(); }

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

void ZelmorImpl::connectBle(unsigned long address) {
    // A TCP link on its way or up stays as it is, as a Bluetooth LE one does.
    if (running_.load()) return;
    try {
        ble_.connect(address, false);
    } catch (BluetoothLE::Exception const&) {
        // A Bluetooth LE link is already up or on its way: it stays as it is.
    }
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
    if (!tcp && !running_.load()) {
        if (ble_.state() == BluetoothLE::State::Connected) ble_.disconnect();
        return;
    }
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
    bool tcp;
    ssize_t written = 0;
    {
        std::lock_guard lock(socketMutex_);
        tcp = socket_ != -1;
        if (tcp) written = ::send(socket_, data, length, MSG_NOSIGNAL);
    }
    // No TCP socket: the link, if any, is Bluetooth LE.
    if (!tcp) {
        sendBle(data, length);
        return;
    }
    if (written == static_cast<ssize_t>(length)) return;
    // The frame is not retried: the link is ended instead, as by the user.
    reason_.store(DisconnectReason::ClosedLocally);
    // On the TCP thread itself (the hub hello) the loop sees the cleared flag.
    if (running_.exchange(false) && connectionThreadId_.load() != std::this_thread::get_id()) joinConnectionThread();
}

void ZelmorImpl::advanceReason(DisconnectReason from, DisconnectReason to) {
    reason_.compare_exchange_strong(from, to);
}

int16_t ZelmorImpl::getRssi() { return ble_.getRssi(); }

void ZelmorImpl::tcpThread(unsigned int ip, unsigned short port, WifiAccessKey accessKey) {
    connectionThreadId_.store(std::this_thread::get_id());
    int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
    if (fd >= 0 && setOption(fd, IPPROTO_TCP, TCP_NODELAY) && setOption(fd, IPPROTO_TCP, TCP_QUICKACK)) {
        advanceReason(DisconnectReason::ConnectionLost, DisconnectReason::ConnectFailed);
        if (connectSocket(fd, ip, port)) {
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

// The connect is watched in waits of kEpollWaitMs, as the link is: a
// disconnect abandons it within one wait instead of after the system's own
// time-out of about two minutes.
bool ZelmorImpl::connectSocket(int fd, unsigned int ip, unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = ip;
    if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0) return true;
    if (errno != EINPROGRESS) return false;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(connectTimeoutMs_);
    while (running_.load()) {
        auto const left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0) return false;
        pollfd writable{fd, POLLOUT, 0};
        int const ready = ::poll(&writable, 1, static_cast<int>(std::min<long>(left, kEpollWaitMs)));
        if (ready < 0 && errno != EINTR) return false;
        if (ready > 0) {
            int error = 0;
            socklen_t length = sizeof error;
            return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
        }
    }
    return false;
}

void ZelmorImpl::runLink(int fd, WifiAccessKey const& accessKey) {
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

    std::vector<uint8_t> buffer(kReadBufferSize);
    while (running_.load()) {
        epoll_event ready{};
        int const n = ::epoll_wait(epoll.get(), &ready, 1, kEpollWaitMs);
        if (n < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (n == 0) continue;
        if (!readAvailable(fd, buffer)) break;
    }
    running_.store(false);
}

bool ZelmorImpl::readAvailable(int fd, std::vector<uint8_t>& buffer) {
    // A read that fills the buffer leaves more behind: it is read on at once,
    // without a wait that would only report what is already known.
    for (;;) {
        ssize_t const got = ::read(fd, buffer.data(), buffer.size());
        if (got > 0) {
            receiveBytes(buffer.data(), static_cast<size_t>(got));
            if (static_cast<size_t>(got) < buffer.size() || !running_.load()) return true;
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else {
            // EAGAIN: a wake-up with nothing to read; otherwise the peer closed
            // the link, or it failed.
            return got < 0 && errno == EAGAIN;
        }
    }
}

void ZelmorImpl::sendBle(uint8_t const* data, unsigned long length) {
    if (ble_.state() != BluetoothLE::State::Connected || length == 0) return;
    BluetoothLE::Characteristic* const command = commandCharacteristic_.load();
    if (command == nullptr) return;
    size_t const piece = ble_.mtu() - 3u;
    try {
        for (unsigned long offset = 0; offset < length; offset += piece)
            command->writeWithoutResponse(data + offset, std::min<size_t>(piece, length - offset));
    } catch (BluetoothLE::Exception const&) {
        // The link went down between the pieces; its end is reported as usual.
    }
}

void ZelmorImpl::bleConnected() {
    // What a previous link left in the decoder is not the start of a record.
    liveData_.reset();
    try {
        ble_.exchangeMtu(kBluetoothMtu, [] {});
        ble_.discoverServices([this] { bleServicesDiscovered(); });
    } catch (BluetoothLE::Exception const&) {
        // Only when the link dropped at this moment; its end is reported as usual.
    }
}

void ZelmorImpl::bleServicesDiscovered() {
    BluetoothLE::Characteristic* command = nullptr;
    BluetoothLE::Characteristic* liveData = nullptr;
    for (BluetoothLE::Service& service : ble_.services()) {
        if (!(service.uuid == kServiceUuid)) continue;
        for (BluetoothLE::Characteristic& characteristic : service.characteristics) {
            /* The device service holds exactly the two characteristics; anything
               else is not a device this program can talk to. */
            if (characteristic.uuid == kLiveDataUuid) {
                liveData = &characteristic;
            } else if (characteristic.uuid == kCommandUuid) {
                command = &characteristic;
            } else {
                ble_.disconnect();
                return;
            }
        }
    }
    if (command == nullptr || liveData == nullptr) {
        ble_.disconnect();
        return;
    }
    command->handler = [this](uint8_t const* data, size_t length) { receiveBytes(data, length); };
    liveData->handler = [this](uint8_t const* data, size_t length) { bleLiveData(data, length); };
    commandCharacteristic_.store(command);
    try {
        command->setNotify(true, false, [] {});
        liveData->setNotify(true, false, [] {});
    } catch (BluetoothLE::Exception const&) {
        // A characteristic that cannot notify: the device cannot answer.
        ble_.disconnect();
        return;
    }
    startThread();
    setRemoteLink(false);
    // Runs before the device confirmed the two notification enables; requests
    // written meanwhile are answered once they are on, as the device orders them.
    notifyConnected();
}

void ZelmorImpl::bleDisconnected(BluetoothLE::DisconnectReason reason) {
    // The next link finds its own command characteristic; until then nothing is written.
    commandCharacteristic_.store(nullptr);
    stopThread();
    if (std::optional<DisconnectReason> const mapped = deviceReason(reason)) notifyDisconnected(*mapped);
}

void ZelmorImpl::bleLiveData(uint8_t const* data, size_t length) {
    if (!hasMonitorDataCallback()) return;
    liveData_.feed(data, length, [this](MonitorData& record) {
        try {
            record.rssi = getRssi();
        } catch (BluetoothLE::Exception const&) {
            // The adapter could not tell: the record says "not available".
        }
        notifyMonitorData(record);
    });
}
