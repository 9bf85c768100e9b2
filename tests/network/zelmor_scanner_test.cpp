// The LAN listener on the real announcement port: announcements from several
// loopback addresses become sightings with their senders' addresses.
#include "zelmor_scanner_impl.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

#include "loopback_listener.h"

namespace {

/// Sends one datagram from `from` to the announcement port on 127.0.0.1.
void announce(char const* from, std::vector<uint8_t> const& datagram) {
    int const fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in source{};
    source.sin_family = AF_INET;
    source.sin_addr.s_addr = loopbackAddress(from);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&source), sizeof source), 0);
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(kLanAnnouncementPort);
    target.sin_addr.s_addr = loopbackAddress("127.0.0.1");
    ASSERT_EQ(::sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&target), sizeof target),
              static_cast<ssize_t>(datagram.size()));
    ::close(fd);
}

TEST(ZelmorScannerTest, AnnouncementsFromSeveralDevicesArriveWithTheirAddresses) {
    ZelmorScannerImpl scanner;
    std::mutex mutex;
    std::condition_variable changed;
    std::map<uint64_t, ZelmorScanner::Advertisement> seen;
    scanner.setAdvertisementCallback([&](ZelmorScanner::Advertisement const& ad) {
        std::lock_guard lock(mutex);
        seen[ad.serial] = ad;
        changed.notify_all();
    });
    ASSERT_TRUE(scanner.startWifiScan()) << scanner.lastError();

    ZelmorScanner::Advertisement lan;
    lan.hardwareRevision = 0x10;
    lan.serial = 0xA1;
    lan.name = "Workshop";
    ZelmorScanner::Advertisement wifi = lan;
    wifi.hardwareRevision = 0x41;
    wifi.serial = 0xB2;
    auto wrongFamily = encodeLanAnnouncement(wifi, 0);
    wrongFamily[10] = 0x12;
    announce("127.0.0.32", wrongFamily);
    announce("127.0.0.31", encodeLanAnnouncement(lan, 0));
    announce("127.0.0.32", encodeLanAnnouncement(wifi, 0));

    std::unique_lock lock(mutex);
    ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(10), [&] { return seen.size() >= 2; }));
    EXPECT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0xA1].ipAddress, loopbackAddress("127.0.0.31"));
    EXPECT_EQ(seen[0xA1].name, "Workshop");
    EXPECT_EQ(seen[0xB2].ipAddress, loopbackAddress("127.0.0.32"));
    lock.unlock();
    scanner.stopWifiScan();
}

TEST(ZelmorScannerTest, PortInUseIsReportedWithTheSystemsMessage) {
    ZelmorScannerImpl first;
    ASSERT_TRUE(first.startWifiScan());
    ZelmorScannerImpl second;
    EXPECT_FALSE(second.startWifiScan());
    EXPECT_EQ(second.lastError(), "Cannot listen on UDP port 7207: Address already in use");
}

}  // namespace
