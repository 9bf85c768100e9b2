// The announcer: each network device's datagram reaches a listener on 127.0.0.1
// from the device's own address and reads back as the device.
#include "announcer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>

#include "lan_announcement.h"
#include "loopback_listener.h"
#include "simulated_device.h"

namespace {

sim::SimulatedDeviceConfig deviceConfig(uint8_t revision, uint64_t serial, std::string name) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.serial = serial;
    config.name = std::move(name);
    return config;
}

/// A UDP socket on 127.0.0.1, on a port of the system's choosing.
class DatagramListener {
public:
    DatagramListener() {
        socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = loopbackAddress("127.0.0.1");
        socklen_t length = sizeof a;
        if (::bind(socket_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
            ::getsockname(socket_, reinterpret_cast<sockaddr*>(&a), &length) != 0)
            throw std::runtime_error("cannot bind a UDP socket on 127.0.0.1");
        port_ = ntohs(a.sin_port);
    }
    DatagramListener(DatagramListener const&) = delete;
    DatagramListener& operator=(DatagramListener const&) = delete;
    ~DatagramListener() { ::close(socket_); }

    uint16_t port() const { return port_; }

    /// The next datagram and its sender's address (network order); nothing
    /// after 10 s without one.
    std::optional<std::pair<std::vector<uint8_t>, uint32_t>> receive() {
        pollfd p{socket_, POLLIN, 0};
        if (::poll(&p, 1, 10000) != 1) return std::nullopt;
        std::vector<uint8_t> datagram(512);
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        ssize_t const got =
            ::recvfrom(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&sender), &length);
        if (got < 0) return std::nullopt;
        datagram.resize(static_cast<size_t>(got));
        return std::pair{datagram, sender.sin_addr.s_addr};
    }

private:
    int socket_ = -1;
    uint16_t port_ = 0;
};

TEST(SimAnnouncer, EachNetworkDeviceIsAnnouncedFromItsOwnAddress) {
    sim::SimulatedDevice lan(deviceConfig(0x10, 0xA1, "Quay shed"));
    sim::SimulatedDevice wifi(deviceConfig(0x41, 0xB2, "Hilltop cabin"));
    sim::SimulatedDevice bluetooth(deviceConfig(0x21, 0xC3, "Dinghy"));
    DatagramListener listener;
    sim::Announcer announcer("127.0.0.1", listener.port());
    announcer.addDevice(lan, "127.0.0.42");
    announcer.addDevice(wifi, "127.0.0.43");
    announcer.addDevice(bluetooth, "127.0.0.44");
    ASSERT_TRUE(announcer.start()) << announcer.error();

    std::map<uint64_t, std::pair<ZelmorScanner::Advertisement, size_t>> seen;
    while (seen.size() < 2) {
        auto const datagram = listener.receive();
        ASSERT_TRUE(datagram.has_value()) << "an announcement is missing";
        auto const& [bytes, sender] = *datagram;
        auto const ad = decodeLanAnnouncement(bytes.data(), bytes.size(), sender);
        ASSERT_TRUE(ad.has_value());
        uint32_t const held = static_cast<uint32_t>(bytes[95]) << 24 | bytes[96] << 16 | bytes[97] << 8 | bytes[98];
        EXPECT_EQ(htonl(held), sender);
        seen[ad->serial] = {*ad, bytes.size()};
    }
    announcer.stop();

    ASSERT_EQ(seen.count(0xA1), 1u);
    ASSERT_EQ(seen.count(0xB2), 1u);
    auto const& [lanAd, lanSize] = seen[0xA1];
    EXPECT_EQ(lanAd.ipAddress, loopbackAddress("127.0.0.42"));
    EXPECT_EQ(lanAd.name, "Quay shed");
    EXPECT_EQ(lanAd.hardwareRevision, 0x10);
    EXPECT_EQ(lanSize, kLanAnnouncementSize);
    auto const& [wifiAd, wifiSize] = seen[0xB2];
    EXPECT_EQ(wifiAd.ipAddress, loopbackAddress("127.0.0.43"));
    EXPECT_EQ(wifiAd.name, "Hilltop cabin");
    EXPECT_EQ(wifiSize, kWifiAnnouncementSize);
    EXPECT_EQ(wifiAd.rssi, wifi.readings().rssi);
    EXPECT_GT(wifiAd.voltage1, 10.0f);
}

TEST(SimAnnouncer, RefusesToAnnounceOutsideLoopback) {
    sim::SimulatedDevice lan(deviceConfig(0x10, 0xA1, "Quay shed"));
    for (char const* target : {"10.0.0.1", "255.255.255.255", "localhost"}) {
        sim::Announcer announcer(target);
        announcer.addDevice(lan, "127.0.0.42");
        EXPECT_FALSE(announcer.start()) << target;
        EXPECT_NE(announcer.error().find(target), std::string::npos) << announcer.error();
    }
    sim::Announcer fromOutside;
    fromOutside.addDevice(lan, "192.168.0.42");
    EXPECT_FALSE(fromOutside.start());
}

}  // namespace
