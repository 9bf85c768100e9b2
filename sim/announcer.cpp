#include "announcer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/core.h>

#include "device_advertisement.h"
#include "hardware_revision.h"
#include "loopback_address.h"
#include "simulated_device.h"

namespace sim {

namespace {

sockaddr_in socketAddress(uint32_t address, uint16_t port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(address);
    return a;
}

}  // namespace

Announcer::Announcer(std::string targetAddress, uint16_t targetPort)
    : targetAddress_(std::move(targetAddress)), targetPort_(targetPort) {}

Announcer::~Announcer() { stop(); }

void Announcer::addDevice(SimulatedDevice& device, std::string address) {
    senders_.push_back(Sender{&device, std::move(address)});
}

bool Announcer::start() {
    if (thread_.joinable()) return true;
    std::optional<uint32_t> const target = parseLoopbackAddress(targetAddress_);
    if (!target || targetPort_ == 0) {
        fail(fmt::format("Cannot announce to {}:{}: only a loopback address (127.0.0.0/8) and a port are allowed",
                         targetAddress_, targetPort_));
        return false;
    }
    for (Sender& sender : senders_) {
        std::optional<uint32_t> const address = parseLoopbackAddress(sender.addressText);
        if (!address) {
            fail(fmt::format("Cannot announce from {}: not a numeric loopback address (127.0.0.0/8)",
                             sender.addressText));
            closeSockets();
            return false;
        }
        sender.address = *address;
        // Bound to the device's address, so that the datagram carries it as sender.
        sockaddr_in const from = socketAddress(sender.address, 0);
        sender.socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (sender.socket < 0 || ::bind(sender.socket, reinterpret_cast<sockaddr const*>(&from), sizeof from) != 0) {
            fail(fmt::format("Cannot announce from {}: {}", sender.addressText, std::strerror(errno)));
            closeSockets();
            return false;
        }
    }
    {
        std::lock_guard lock(mutex_);
        stopping_ = false;
    }
    thread_ = std::thread([this, target = *target] { announceLoop(target); });
    return true;
}

void Announcer::announceLoop(uint32_t target) {
    for (;;) {
        announceRound(target);
        std::unique_lock lock(mutex_);
        if (wake_.wait_for(lock, kInterval, [this] { return stopping_; })) return;
    }
}

void Announcer::announceRound(uint32_t target) {
    sockaddr_in const to = socketAddress(target, targetPort_);
    for (Sender const& sender : senders_) {
        if (!sender.device->online()) continue;  // restarting: silent until it is back
        ZelmorScanner::Advertisement const ad = advertisementOf(*sender.device);
        if (!isNetworkModel(ad.hardwareRevision)) continue;
        std::vector<uint8_t> const datagram = encodeLanAnnouncement(ad, sender.address);
        // Nobody listening is normal for a device on a network; what fails is not retried.
        ::sendto(sender.socket, datagram.data(), datagram.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr const*>(&to),
                 sizeof to);
    }
}

void Announcer::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
    closeSockets();
}

std::string Announcer::error() const {
    std::lock_guard lock(mutex_);
    return error_;
}

void Announcer::fail(std::string text) {
    std::lock_guard lock(mutex_);
    error_ = std::move(text);
}

void Announcer::closeSockets() {
    for (Sender& sender : senders_) {
        if (sender.socket >= 0) ::close(sender.socket);
        sender.socket = -1;
    }
}

}  // namespace sim
