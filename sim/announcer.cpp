#include "announcer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
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

// The kernel takes the sender's address from IP_PKTINFO for this one datagram;
// every 127.0.0.0/8 address is this machine's own, so no bind is needed.
void sendFrom(int socket, uint32_t from, sockaddr_in const& to, std::vector<uint8_t> const& datagram) {
    iovec payload{const_cast<uint8_t*>(datagram.data()), datagram.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message{};
    message.msg_name = const_cast<sockaddr_in*>(&to);
    message.msg_namelen = sizeof to;
    message.msg_iov = &payload;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_spec_dst.s_addr = htonl(from);
    std::memcpy(CMSG_DATA(header), &info, sizeof info);
    // Nobody listening is normal for a device on a network; what fails is not retried.
    ::sendmsg(socket, &message, MSG_NOSIGNAL);
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
            return false;
        }
        sender.address = *address;
    }
    socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket_ < 0) {
        fail(fmt::format("Cannot announce: {}", std::strerror(errno)));
        return false;
    }
    {
        std::lock_guard lock(mutex_);
        stopping_ = false;
    }
    thread_ = std::thread([this, target = *target] { announceLoop(target); });
    return true;
}

void Announcer::announceLoop(uint32_t target) {
    using Clock = std::chrono::steady_clock;
    size_t const count = senders_.size();
    size_t const slots = std::clamp(count, size_t{1}, kMaxSlots);
    std::chrono::microseconds const interval = kInterval;
    Clock::time_point round = Clock::now();
    for (;;) {
        for (size_t slot = 0; slot < slots; ++slot) {
            auto const due = round + interval * static_cast<int64_t>(slot) / static_cast<int64_t>(slots);
            {
                std::unique_lock lock(mutex_);
                if (wake_.wait_until(lock, due, [this] { return stopping_; })) return;
            }
            announceSlot(target, count * slot / slots, count * (slot + 1) / slots);
        }
        round += interval;
        // Far behind (the machine was suspended, say): go on from now rather
        // than catch up in one burst.
        if (Clock::now() - round > interval) round = Clock::now();
    }
}

void Announcer::announceSlot(uint32_t target, size_t first, size_t end) {
    sockaddr_in const to = socketAddress(target, targetPort_);
    for (size_t i = first; i < end; ++i) {
        Sender const& sender = senders_[i];
        {
            std::lock_guard lock(mutex_);
            if (sender.silenced) continue;
        }
        if (!sender.device->online()) continue;  // restarting: silent until it is back
        ZelmorScanner::Advertisement const ad = advertisementOf(*sender.device);
        if (!isNetworkModel(ad.hardwareRevision)) continue;
        sendFrom(socket_, sender.address, to, encodeLanAnnouncement(ad, sender.address));
    }
}

void Announcer::silence(SimulatedDevice const& device) {
    std::lock_guard lock(mutex_);
    for (Sender& sender : senders_)
        if (sender.device == &device) sender.silenced = true;
}

void Announcer::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
    if (socket_ >= 0) ::close(socket_);
    socket_ = -1;
}

std::string Announcer::error() const {
    std::lock_guard lock(mutex_);
    return error_;
}

void Announcer::fail(std::string text) {
    std::lock_guard lock(mutex_);
    error_ = std::move(text);
}

}  // namespace sim
