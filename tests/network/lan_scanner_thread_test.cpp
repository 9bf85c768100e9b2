// The LAN listener's thread: an empty datagram does not end it, a start after
// it ended by itself listens again, and the advertisement callback may stop,
// start and destroy its own scanner.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <sstream>

#include "lan_announcement.h"
#include "loopback_peers.h"
#include "reports.h"
#include "zelmor_scanner_impl.h"

namespace {

using Advertisement = ZelmorScanner::Advertisement;

constexpr uint16_t kPort = 7307;

void send(std::vector<uint8_t> const& datagram) {
    int const fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(kPort);
    to.sin_addr.s_addr = loopbackAddress("127.0.0.1");
    ASSERT_EQ(::sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
              static_cast<ssize_t>(datagram.size()));
    ::close(fd);
}

/// A device announcing itself from 127.0.0.1.
void announce(uint64_t serial) {
    Advertisement device;
    device.hardwareRevision = 0x10;
    device.serial = serial;
    send(encodeLanAnnouncement(device, 0x7F000001));
}

/// A callback that reports the serial of every sighting.
ZelmorScanner::AdvertisementCallback reportSerials(Reports<uint64_t>& serials) {
    return [seen = serials.callback()](Advertisement const& sighting) { seen(sighting.serial); };
}

/// The socket of this process bound to kPort; -1 when there is none.
int listeningSocket() {
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        int const fd = std::stoi(entry.path().filename());
        sockaddr_in bound{};
        socklen_t length = sizeof bound;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length) == 0 && bound.sin_family == AF_INET &&
            ntohs(bound.sin_port) == kPort)
            return fd;
    }
    return -1;
}

// An empty datagram leaves the listener listening. A socket shut down under it
// ends it; the next start opens a new one.
TEST(LanScannerThread, StartAfterTheListenerEndedListensAgain) {
    Reports<uint64_t> serials;
    ZelmorScannerImpl scanner(kPort);
    scanner.setAdvertisementCallback(reportSerials(serials));
    ASSERT_TRUE(scanner.startWifiScan());
    send({});
    announce(1);
    ASSERT_EQ(serials.wait(1), std::vector<uint64_t>{1});
    ::shutdown(listeningSocket(), SHUT_RDWR);
    ASSERT_TRUE(eventually([] { return listeningSocket() < 0; }));
    ASSERT_TRUE(scanner.startWifiScan()) << scanner.lastError();
    announce(2);
    EXPECT_EQ(serials.wait(2), (std::vector<uint64_t>{1, 2}));
}

/// Calls on the scanner each of `calls` ("stop", "start", "destroy"); false
/// when a start fails.
bool callIn(std::unique_ptr<ZelmorScannerImpl>& scanner, std::string const& calls) {
    std::istringstream words(calls);
    bool started = true;
    for (std::string word; words >> word;) {
        if (word == "stop") scanner->stopWifiScan();
        if (word == "start") started = scanner->startWifiScan() && started;
        if (word == "destroy") scanner.reset();
    }
    return started;
}

// Listening ends once a callback that stopped its scanner or destroyed it
// returns (the port is let go); a start there takes a stop back.
TEST(LanScannerThread, CallbackMayStopStartAndDestroyItsScanner) {
    std::pair<char const*, bool> const cases[] = {
        {"stop", false}, {"stop start", true}, {"start", true}, {"destroy", false}};
    for (auto const& [calls, listening] : cases) {
        SCOPED_TRACE(calls);
            Reports<uint64_t> serials;
        Reports<bool> called;
        auto scanner = std::make_unique<ZelmorScannerImpl>(kPort);
        std::string const act = calls;
        scanner->setAdvertisementCallback([&, act, seen = reportSerials(serials)](Advertisement const& sighting) {
            if (sighting.serial == 1) called.add(callIn(scanner, act));
            seen(sighting);
        });
        ASSERT_TRUE(scanner->startWifiScan());
        announce(1);
        ASSERT_EQ(called.wait(1), std::vector<bool>{true});
        if (!listening) {
            ASSERT_TRUE(eventually([] { return listeningSocket() < 0; }));
            if (!scanner) continue;
            ASSERT_TRUE(scanner->startWifiScan()) << scanner->lastError();
        }
        announce(2);
        EXPECT_EQ(serials.wait(2), (std::vector<uint64_t>{1, 2}));
    }
}

}  // namespace
