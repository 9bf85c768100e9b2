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

}  // namespace

ZelmorScannerImpl::ZelmorScannerImpl(uint16_t port) : port_(port) {}

ZelmorScannerImpl::~ZelmorScannerImpl() {
    stopBle();
    stopWifiScan();
}

bool ZelmorScannerImpl::startWifiScan() {
    if (lanThread_.joinable()) return true;
    int const fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        setError(fmt::format("Cannot open a UDP socket: {}", std::strerror(errno)));
        return false;
    }
    int const one = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port_);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &one, sizeof one) != 0 ||
        ::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        setError(fmt::format("Cannot listen on UDP port {}: {}", port_, std::strerror(errno)));
        ::close(fd);
        return false;
    }
    running_.store(true);
    lanThread_ = std::thread([this, fd] { listen(fd); });
    return true;
}

void ZelmorScannerImpl::stopWifiScan() {
    running_.store(false);
    if (lanThread_.joinable()) lanThread_.join();
}

bool ZelmorScannerImpl::initBle() {
    stopBle();
    auto scanner = std::make_unique<BluetoothLEScanner>();
    if (!scanner->init() || !scanner->setParameters(true) ||
        !scanner->setUuidFilters({*BleUUID::parse(kZelmorServiceUuid)})) {
        setError(scanner->lastError());
        return false;
    }
    scanner->setAdvertisementCallback([this](BluetoothLEScanner::Advertisement& ble) {
        if (std::optional<Advertisement> const sighting = sightingOf(ble)) deliver(*sighting);
    });
    if (!scanner->start()) {
        setError(scanner->lastError());
        return false;
    }
    ble_ = std::move(scanner);
    return true;
}

void ZelmorScannerImpl::stopBle() {
    if (!ble_) return;
    ble_->stop();
    ble_.reset();
}

void ZelmorScannerImpl::setAdvertisementCallback(AdvertisementCallback callback) {
    std::lock_guard lock(mutex_);
    callback_ = std::move(callback);
}

std::string ZelmorScannerImpl::lastError() const {
    std::lock_guard lock(mutex_);
    return error_;
}

void ZelmorScannerImpl::setError(std::string text) {
    std::lock_guard lock(mutex_);
    error_ = std::move(text);
}

void ZelmorScannerImpl::deliver(Advertisement const& advertisement) {
    AdvertisementCallback callback;
    {
        std::lock_guard lock(mutex_);
        callback = callback_;
    }
    if (callback) callback(advertisement);
}

void ZelmorScannerImpl::listen(int fd) {
    int const epoll = ::epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (epoll < 0 || ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) running_.store(false);

    uint8_t buffer[kMaxDatagramSize];
    while (running_.load()) {
        epoll_event ready{};
        // Any failed wait, an interruption included, ends the listener.
        int const n = ::epoll_wait(epoll, &ready, 1, kEpollWaitMs);
        if (n < 0) break;
        if (n == 0) continue;
        sockaddr_in sender{};
        socklen_t senderLength = sizeof sender;
        ssize_t got;
        do {
            got = ::recvfrom(fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&sender), &senderLength);
        } while (got < 0 && errno == EINTR);
        if (got < 0 && errno == EAGAIN) continue;
        if (got <= 0) break;  // a receive error, or an empty datagram
        if (auto ad = decodeLanAnnouncement(buffer, static_cast<size_t>(got), sender.sin_addr.s_addr)) deliver(*ad);
    }
    running_.store(false);
    if (epoll >= 0) ::close(epoll);
    ::close(fd);
}
