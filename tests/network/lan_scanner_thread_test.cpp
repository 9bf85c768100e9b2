// The LAN listener's thread: what others may do to it without ending it, a
// start after it ended by itself, and the advertisement callback stopping,
// starting and destroying its own scanner.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>

#include <functional>
#include <memory>
#include <sstream>

#include "lan_announcement.h"
#include "loopback_peers.h"
#include "process_view.h"
#include "reports.h"
#include "zelmor_scanner_impl.h"

namespace {

using Advertisement = ZelmorScanner::Advertisement;

constexpr uint16_t kPort = 7307;

/// A device that announces itself from 127.0.0.1 to kPort.
class AnnouncingPeer {
public:
    AnnouncingPeer() : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    ~AnnouncingPeer() { ::close(fd_); }
    void send(std::vector<uint8_t> const& bytes) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(kPort);
        to.sin_addr.s_addr = loopbackAddress("127.0.0.1");
        ASSERT_EQ(::sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
                  static_cast<ssize_t>(bytes.size()));
    }
    void announce(uint64_t serial) {
        Advertisement device;
        device.hardwareRevision = 0x10;
        device.serial = serial;
        send(encodeLanAnnouncement(device, 0x7F000001));
    }

private:
    int fd_;
};

/// A callback that reports the serial of every sighting.
ZelmorScanner::AdvertisementCallback reportSerials(Reports<uint64_t>& serials) {
    return [seen = serials.callback()](Advertisement const& sighting) { seen(sighting.serial); };
}

/// The socket of this process bound to kPort; -1 when there is none.
int listeningSocket() {
    for (int fd : openDescriptors()) {
        sockaddr_in bound{};
        socklen_t length = sizeof bound;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length) == 0 && bound.sin_family == AF_INET &&
            ntohs(bound.sin_port) == kPort)
            return fd;
    }
    return -1;
}

/// Signals `thread` a few times while it sleeps in its wait, as any signal
/// handled by the program would, until it is gone.
void interruptWaits(pid_t thread) {
    struct sigaction quiet {};
    quiet.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &quiet, nullptr);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(eventually([&] { return threadState(thread) != 'R'; }));
        if (threadState(thread) == 0) return;
        ::syscall(SYS_tgkill, ::getpid(), thread, SIGUSR1);
    }
}

TEST(LanScannerThread, ListensOnThroughWhatOthersMaySend) {
    std::pair<char const*, std::function<void(AnnouncingPeer&, pid_t)>> const events[] = {
        {"an empty datagram", [](AnnouncingPeer& peer, pid_t) { peer.send({}); }},
        {"an interrupted wait", [](AnnouncingPeer&, pid_t listener) { interruptWaits(listener); }},
    };
    for (auto const& [event, cause] : events) {
        SCOPED_TRACE(event);
        AnnouncingPeer peer;
        Reports<uint64_t> serials;
        ZelmorScannerImpl scanner(kPort);
        scanner.setAdvertisementCallback(reportSerials(serials));
        ASSERT_TRUE(scanner.startWifiScan());
        pid_t const listener = threadNamed("zelmor-lan");
        ASSERT_NE(listener, 0);
        cause(peer, listener);
        peer.announce(1);
        EXPECT_EQ(serials.wait(1), std::vector<uint64_t>{1});
    }
}

// A socket shut down under the listener ends it; the next start opens a new one.
TEST(LanScannerThread, StartAfterTheListenerEndedListensAgain) {
    AnnouncingPeer peer;
    Reports<uint64_t> serials;
    ZelmorScannerImpl scanner(kPort);
    scanner.setAdvertisementCallback(reportSerials(serials));
    ASSERT_TRUE(scanner.startWifiScan());
    ASSERT_GE(listeningSocket(), 0);
    ::shutdown(listeningSocket(), SHUT_RDWR);
    ASSERT_TRUE(eventually([] { return listeningSocket() < 0; }));
    ASSERT_TRUE(scanner.startWifiScan()) << scanner.lastError();
    peer.announce(2);
    EXPECT_EQ(serials.wait(1), std::vector<uint64_t>{2});
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
        AnnouncingPeer peer;
        Reports<uint64_t> serials;
        Reports<bool> called;
        auto scanner = std::make_unique<ZelmorScannerImpl>(kPort);
        std::string const act = calls;
        scanner->setAdvertisementCallback([&, act, seen = reportSerials(serials)](Advertisement const& sighting) {
            if (sighting.serial == 1) called.add(callIn(scanner, act));
            seen(sighting);
        });
        ASSERT_TRUE(scanner->startWifiScan());
        peer.announce(1);
        ASSERT_EQ(called.wait(1), std::vector<bool>{true});
        if (!listening) {
            ASSERT_TRUE(eventually([] { return listeningSocket() < 0; }));
            if (!scanner) continue;
            ASSERT_TRUE(scanner->startWifiScan()) << scanner->lastError();
        }
        peer.announce(2);
        EXPECT_EQ(serials.wait(2), (std::vector<uint64_t>{1, 2}));
    }
}

}  // namespace
