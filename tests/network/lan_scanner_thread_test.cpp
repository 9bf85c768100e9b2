// The LAN listener's thread: what others may do to it without ending it, a
// start after it ended by itself, and the advertisement callback stopping,
// starting and destroying its own scanner.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>

#include <functional>
#include <memory>

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

std::vector<uint64_t> serials(std::vector<Advertisement> const& sightings) {
    std::vector<uint64_t> seen;
    for (Advertisement const& sighting : sightings) seen.push_back(sighting.serial);
    return seen;
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
        Reports<Advertisement> sightings;
        ZelmorScannerImpl scanner(kPort);
        scanner.setAdvertisementCallback(sightings.callback());
        std::set<int> const before = threadIds();
        ASSERT_TRUE(scanner.startWifiScan());
        std::set<int> const listener = added(before, threadIds());
        ASSERT_EQ(listener.size(), 1u);
        cause(peer, *listener.begin());
        peer.announce(1);
        EXPECT_EQ(serials(sightings.wait(1)), std::vector<uint64_t>{1});
    }
}

// A socket shut down under the listener ends it; the next start opens a new one.
TEST(LanScannerThread, StartAfterTheListenerEndedListensAgain) {
    AnnouncingPeer peer;
    Reports<Advertisement> sightings;
    ZelmorScannerImpl scanner(kPort);
    scanner.setAdvertisementCallback(sightings.callback());
    ASSERT_TRUE(scanner.startWifiScan());
    ASSERT_GE(listeningSocket(), 0);
    ::shutdown(listeningSocket(), SHUT_RDWR);
    ASSERT_TRUE(eventually([] { return listeningSocket() < 0; }));
    ASSERT_TRUE(scanner.startWifiScan()) << scanner.lastError();
    peer.announce(2);
    EXPECT_EQ(serials(sightings.wait(1)), std::vector<uint64_t>{2});
}

// Listening ends once a callback that stopped it returns (the port is let go);
// a start there takes the stop back.
TEST(LanScannerThread, CallbackMayStopAndStartItsScanner) {
    struct Case {
        char const* action;
        std::function<bool(ZelmorScannerImpl&)> act;
        bool listening;
    } const cases[] = {
        {"stop",
         [](ZelmorScannerImpl& s) {
             s.stopWifiScan();
             return true;
         },
         false},
        {"stop, then start",
         [](ZelmorScannerImpl& s) {
             s.stopWifiScan();
             return s.startWifiScan();
         },
         true},
        {"start", [](ZelmorScannerImpl& s) { return s.startWifiScan(); }, true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.action);
        AnnouncingPeer peer;
        Reports<Advertisement> sightings;
        Reports<bool> acted;
        ZelmorScannerImpl scanner(kPort);
        scanner.setAdvertisementCallback([&, seen = sightings.callback()](Advertisement const& sighting) {
            if (sighting.serial == 1) acted.add(c.act(scanner));
            seen(sighting);
        });
        ASSERT_TRUE(scanner.startWifiScan());
        peer.announce(1);
        ASSERT_EQ(acted.wait(1), std::vector<bool>{true});
        if (!c.listening) {
            ASSERT_TRUE(eventually([] { return listeningSocket() < 0; }));
            ASSERT_TRUE(scanner.startWifiScan()) << scanner.lastError();
        }
        peer.announce(2);
        EXPECT_EQ(serials(sightings.wait(2)), (std::vector<uint64_t>{1, 2}));
    }
}

TEST(LanScannerThread, CallbackMayDestroyItsScanner) {
    AnnouncingPeer peer;
    Reports<Advertisement> sightings;
    auto scanner = std::make_unique<ZelmorScannerImpl>(kPort);
    scanner->setAdvertisementCallback([&scanner, seen = sightings.callback()](Advertisement const& sighting) {
        scanner.reset();
        seen(sighting);
    });
    ASSERT_TRUE(scanner->startWifiScan());
    peer.announce(1);
    ASSERT_EQ(sightings.wait(1).size(), 1u);
    EXPECT_TRUE(eventually([] { return listeningSocket() < 0; }));
}

}  // namespace
