#include "zelmor_scanner_impl.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include <fmt/core.h>

#include "ble_manufacturer_data.h"
#include "zelmor_gatt.h"

namespace {

/// The sighting an advertisement stands for, or nothing when it is not one of
/// the devices'.
std::optional<ZelmorScanner::Advertisement> sightingOf(BluetoothLEScanner::Advertisement const& ble) {
    auto const entry = std::find_if(ble.manufacturerData.begin(), ble.manufacturerData.end(),
                                    [](auto const& data) { return data.first == kZelmorCompanyId; });
    ZelmorScanner::Advertisement sighting;
    if (entry == ble.manufacturerData.end() ||
        !decodeManufacturerData(entry->second.data(), entry->second.size(), sighting))
        return std::nullopt;
    sighting.source = ZelmorScanner::Advertisement::Source::Bluetooth;
    sighting.name = ble.name;
    sighting.rssi = ble.rssi;
    for (size_t i = 0; i < ble.address.size(); ++i)
        sighting.bluetoothAddress |= static_cast<uint64_t>(ble.address[i]) << (8 * i);
    sighting.randomAddress = ble.randomAddress;
    sighting.serial = sighting.bluetoothAddress;
    return sighting;
}

/// The bound socket and the epoll set that waits on it, closed with the last
/// copy of the loop that listens on them.
class LanSocket {
public:
    LanSocket(int socket, int epoll) : socket_(socket), epoll_(epoll) {}
    ~LanSocket() {
        ::close(epoll_);
        ::close(socket_);
    }
    LanSocket(LanSocket const&) = delete;
    LanSocket& operator=(LanSocket const&) = delete;

    /// Hands every valid announcement to `deliver` until the run is no longer
    /// wanted or the socket fails. An empty or foreign datagram is anyone's to
    /// send and an interrupted wait is any signal's doing: both are let pass.
    void listen(ListenerThread::Run const& run,
                SharedCallback<void(ZelmorScanner::Advertisement const&)> const& deliver) {
        uint8_t buffer[ZelmorScannerImpl::kMaxDatagramSize];
        while (run.wanted()) {
            epoll_event ready{};
            int const n = ::epoll_wait(epoll_, &ready, 1, ZelmorScannerImpl::kEpollWaitMs);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) return;
            if (n == 0) continue;
            // Shut down: no datagram will ever come again.
            if (ready.events & (EPOLLHUP | EPOLLRDHUP)) return;
            sockaddr_in sender{};
            socklen_t senderLength = sizeof sender;
            ssize_t const got =
                ::recvfrom(socket_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&sender), &senderLength);
            if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (got < 0) return;
            if (auto ad = decodeLanAnnouncement(buffer, static_cast<size_t>(got), sender.sin_addr.s_addr)) deliver(*ad);
        }
    }

private:
    int const socket_;
    int const epoll_;
};

}  // namespace

ZelmorScannerImpl::ZelmorScannerImpl(uint16_t port) : port_(port) {}

ZelmorScannerImpl::~ZelmorScannerImpl() {
    stopBle();
    lan_.leave();
}

bool ZelmorScannerImpl::startWifiScan() {
    std::string error;
    bool const listening = lan_.start([&]() -> ListenerThread::Loop {
        int const fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            error = fmt::format("Cannot open a UDP socket: {}", std::strerror(errno));
            return {};
        }
        int const one = 1;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port_);
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        if (::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &one, sizeof one) != 0 ||
            ::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
            error = fmt::format("Cannot listen on UDP port {}: {}", port_, std::strerror(errno));
            ::close(fd);
            return {};
        }
        int const epoll = ::epoll_create1(EPOLL_CLOEXEC);
        epoll_event event{};
        event.events = EPOLLIN | EPOLLRDHUP;
        if (epoll < 0 || ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) {
            error = fmt::format("Cannot wait on UDP port {}: {}", port_, std::strerror(errno));
            if (epoll >= 0) ::close(epoll);
            ::close(fd);
            return {};
        }
        auto socket = std::make_shared<LanSocket>(fd, epoll);
        return [socket, callback = callback_](ListenerThread::Run const& run) { socket->listen(run, callback); };
    });
    if (!listening) setError(std::move(error));
    return listening;
}

void ZelmorScannerImpl::stopWifiScan() { lan_.stop(); }

bool ZelmorScannerImpl::initBle() {
    stopBle();
    auto scanner = std::make_unique<BluetoothLEScanner>();
    if (!scanner->init() || !scanner->setParameters(true) ||
        !scanner->setUuidFilters({*BleUUID::parse(kZelmorServiceUuid)})) {
        setError(scanner->lastError());
        return false;
    }
    scanner->setAdvertisementCallback([callback = callback_](BluetoothLEScanner::Advertisement& ble) {
        if (std::optional<Advertisement> const sighting = sightingOf(ble)) callback(*sighting);
    });
    if (!scanner->start()) {
        setError(scanner->lastError());
        return false;
    }
    {
        std::lock_guard lock(bleMutex_);
        std::swap(ble_, scanner);
    }
    // Another thread's start won the race in between: one source is enough.
    if (scanner) scanner->stop();
    return true;
}

void ZelmorScannerImpl::stopBle() {
    std::unique_ptr<BluetoothLEScanner> scanner;
    {
        std::lock_guard lock(bleMutex_);
        scanner = std::move(ble_);
    }
    if (scanner) scanner->stop();
}

void ZelmorScannerImpl::setAdvertisementCallback(AdvertisementCallback callback) { callback_.set(std::move(callback)); }

std::string ZelmorScannerImpl::lastError() const {
    std::lock_guard lock(errorMutex_);
    return error_;
}

void ZelmorScannerImpl::setError(std::string text) {
    std::lock_guard lock(errorMutex_);
    error_ = std::move(text);
}
