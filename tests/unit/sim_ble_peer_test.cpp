// A simulated Bluetooth LE device on an ATT link, driven with raw PDUs over a
// socket pair: its GATT database, commands and answers through the command
// characteristic, live data, transport faults, and the radio that connects
// hosts to devices by address.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ble_radio.h"
#include "live_data_frame.h"
#include "sim_test_host.h"
#include "test_bytes.h"

namespace {

using namespace simtest;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::seconds(20);

constexpr uint16_t kLiveDataValue = 6;
constexpr uint16_t kLiveDataConfiguration = 7;
constexpr uint16_t kCommandValue = 9;
constexpr uint16_t kCommandConfiguration = 10;
constexpr char kReadName[] = "0a 03 00";
constexpr char kZelmor[] = "0b 5a 65 6c 6d 6f 72";  // the name of a 0x23 model

// ec7c000n-2c7b-1539-172f-29d041beab3e as the Attribute Protocol carries it.
std::string deviceUuid(char const* n) { return std::string("3e ab be 41 d0 29 2f 17 39 15 7b 2c ") + n + " 00 7c ec"; }

bool eventually(std::function<bool()> const& condition) {
    Clock::time_point const deadline = Clock::now() + kPatience;
    while (!condition()) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

/// The host's end of one ATT link; notifications are kept per value handle.
class HostEnd {
public:
    explicit HostEnd(int socket) : socket_(socket) {}
    ~HostEnd() { ::close(socket_); }
    HostEnd(HostEnd const&) = delete;
    HostEnd& operator=(HostEnd const&) = delete;

    void send(Bytes const& pdu) {
        ASSERT_EQ(::send(socket_, pdu.data(), pdu.size(), MSG_NOSIGNAL), static_cast<ssize_t>(pdu.size()));
    }

    /// The next PDU; nothing when the link ends or nothing comes in time.
    std::optional<Bytes> next() {
        pollfd wait{socket_, POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(kPatience.count() * 1000)) <= 0) return std::nullopt;
        Bytes pdu(1024);
        ssize_t const got = ::recv(socket_, pdu.data(), pdu.size(), MSG_DONTWAIT);
        hungUp_ = got == 0;
        if (got <= 0) return std::nullopt;
        pdu.resize(static_cast<size_t>(got));
        return pdu;
    }

    /// Sends a request; its answer in hexadecimal, empty when none comes.
    std::string ask(std::string const& request) {
        send(fromHex(request));
        while (std::optional<Bytes> pdu = next()) {
            if (pdu->at(0) != 0x1B) return hex(*pdu);
            keep(*pdu);
        }
        return "";
    }

    /// Waits for one more notification of `handle`; false on a timeout or hang-up.
    bool awaitNotification(uint16_t handle) {
        size_t const before = notifications(handle).size();
        while (notifications(handle).size() == before) {
            std::optional<Bytes> pdu = next();
            if (!pdu) return false;
            if (pdu->at(0) == 0x1B) keep(*pdu);
        }
        return true;
    }

    /// Waits until the link ends, dropping whatever still comes.
    bool awaitHangUp() {
        while (next()) {
        }
        return hungUp_;
    }

    void enable(uint16_t configuration) {
        EXPECT_EQ(ask(hex(Bytes{0x12, static_cast<uint8_t>(configuration), 0x00, 0x01, 0x00})), "13");
    }
    /// Writes to the command characteristic with write commands of at most `piece` bytes.
    void writeCommands(Bytes const& bytes, size_t piece) {
        for (size_t at = 0; at < bytes.size(); at += piece) {
            Bytes pdu{0x52, kCommandValue, 0x00};
            pdu.insert(pdu.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), at + piece)));
            send(pdu);
        }
    }

    std::vector<Bytes> const& notifications(uint16_t handle) { return notifications_[handle]; }

private:
    void keep(Bytes const& pdu) {
        ASSERT_GE(pdu.size(), 3u);
        notifications_[readLe<uint16_t>(pdu.data() + 1)].emplace_back(pdu.begin() + 3, pdu.end());
    }

    int socket_;
    bool hungUp_ = false;
    std::map<uint16_t, std::vector<Bytes>> notifications_;
};

/// The frames carried by a characteristic's notifications, line coding undone.
std::vector<Bytes> framesOf(std::vector<Bytes> const& notifications) {
    CobsStreamDecoder decoder(4096);
    std::vector<Bytes> frames;
    for (Bytes const& n : notifications)
        decoder.feed(n.data(), n.size(),
                     [&](uint8_t* frame, size_t length) { frames.emplace_back(frame, frame + length); });
    return frames;
}

/// A device on one end of a socket pair, the host on the other.
class SimBlePeer : public ::testing::Test {
protected:
    void start(uint8_t revision, sim::BlePeerOptions options = {}) {
        TearDown();
        device_ = std::make_unique<sim::SimulatedDevice>(configFor(revision, clock_));
        int pair[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
        host_ = std::make_unique<HostEnd>(pair[0]);
        peer_ = std::make_unique<sim::BleDevicePeer>(pair[1], *device_, options);
    }
    void TearDown() override {
        peer_.reset();
        host_.reset();
    }

    /// Writes a stream of request frames in pieces of MTU - 3 bytes and waits
    /// for `count` answers on the command characteristic.
    std::vector<Frame> exchange(Bytes const& stream, size_t count) {
        host_->writeCommands(stream, peer_->mtu() - 3u);
        while (framesOf(host_->notifications(kCommandValue)).size() < count)
            if (!host_->awaitNotification(kCommandValue)) break;
        std::vector<Frame> answers;
        for (Bytes const& frame : framesOf(host_->notifications(kCommandValue)))
            if (std::optional<Frame> f = parsePlain(frame)) answers.push_back(*f);
        return answers;
    }

    ManualClock clock_;
    std::unique_ptr<sim::SimulatedDevice> device_;
    std::unique_ptr<HostEnd> host_;
    std::unique_ptr<sim::BleDevicePeer> peer_;
};

// Handles: 1-3 Generic Access with the device name at 3, then the device's
// service: live data (value 6, configuration 7), commands (value 9,
// configuration 10) and, on foreign firmware, a third characteristic (11-12).
TEST_F(SimBlePeer, ServesTheDeviceDatabaseByteForByte) {
    std::string const declarations = "09 15 05 00 10 06 00 " + deviceUuid("01") + " 08 00 14 09 00 " + deviceUuid("02");
    sim::BlePeerOptions const foreign{.mtu = 100, .extraCharacteristic = true};
    struct Case {
        uint8_t revision;
        sim::BlePeerOptions options;
        char const* mtuAnswer;
        uint16_t mtu;
        char const* serviceEnd;
        std::string declarations;
        char const* name;
    } const cases[] = {
        {0x23, {}, "03 f7 00", 247, "0a", declarations, kZelmor},
        // The model name cut to the eight characters a Bluetooth model keeps.
        {0x30, foreign, "03 64 00", 100, "0c", declarations + " 0b 00 02 0c 00 " + deviceUuid("03"),
         "0b 5a 65 6c 6d 6f 72 2d 37"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.mtu);
        start(c.revision, c.options);
        EXPECT_EQ(peer_->mtu(), 23);
        EXPECT_EQ(host_->ask("02 f7 00"), c.mtuAnswer);
        EXPECT_EQ(peer_->mtu(), c.mtu);
        EXPECT_EQ(host_->ask("10 01 00 ff ff 00 28"), "11 06 01 00 03 00 00 18");
        EXPECT_EQ(host_->ask("10 04 00 ff ff 00 28"),
                  "11 14 04 00 " + std::string(c.serviceEnd) + " 00 " + deviceUuid("00"));
        EXPECT_EQ(host_->ask("08 01 00 ff ff 03 28"), "09 07 02 00 02 03 00 00 2a");
        EXPECT_EQ(host_->ask("08 03 00 ff ff 03 28"), c.declarations);
        EXPECT_EQ(host_->ask("08 01 00 ff ff 02 29"), "09 04 07 00 00 00 0a 00 00 00");
        EXPECT_EQ(host_->ask(kReadName), c.name);
        EXPECT_EQ(peer_->liveDataHandle(), kLiveDataValue);
        EXPECT_EQ(peer_->commandHandle(), kCommandValue);
    }
}

// Five info requests and a configuration read as one stream, frame boundaries
// falling inside the write commands.
TEST_F(SimBlePeer, CommandsWrittenInPiecesAreAnsweredInNotificationsOfAtMostMtuMinusThree) {
    for (char const* mtu : {"17 00", "f7 00"}) {
        SCOPED_TRACE(mtu);
        start(0x23);
        host_->ask(std::string("02 ") + mtu);
        host_->enable(kCommandConfiguration);
        Bytes stream;
        for (uint16_t sequence = 1; sequence <= 6; ++sequence) {
            Bytes const frame = lineCode(header(sequence < 6 ? 0x01 : 0x20, sequence, {}));
            stream.insert(stream.end(), frame.begin(), frame.end());
        }
        std::vector<Frame> const answers = exchange(stream, 6);
        ASSERT_EQ(answers.size(), 6u);
        for (uint16_t i = 0; i < 6; ++i) {
            EXPECT_EQ(answers[i].code, 0);
            EXPECT_EQ(answers[i].sequence, i + 1);
        }
        // Firmware 1.32, revision 0x23, address, unlocked, "Zelmor" in 8 bytes.
        for (uint16_t i = 0; i < 5; ++i)
            EXPECT_EQ(hex(answers[i].payload), "32 01 23 c2 5a 4c 00 00 01 00 5a 65 6c 6d 6f 72 00 00");
        EXPECT_EQ(answers[5].payload.size(), 104u);
        std::vector<Bytes> const& pieces = host_->notifications(kCommandValue);
        for (Bytes const& n : pieces) {
            EXPECT_FALSE(n.empty());
            EXPECT_LE(n.size(), peer_->mtu() - 3u);
        }
        // The configuration answer alone needs several pieces at the smallest MTU.
        if (peer_->mtu() == 23) {
            EXPECT_GT(pieces.size(), 10u);
        }
    }
}

// Request 1 goes out, then a read: the device handles PDUs in order and
// sends what a command brings before it reads on, so an answer to request 1
// would be here before the name.
TEST_F(SimBlePeer, AnswersThatCannotGoOutAreDroppedOrHeldBack) {
    sim::FaultSettings stalled;
    stalled.stalled = true;
    sim::FaultSettings delayed;
    delayed.answerDelayMs = 1000;
    struct Case {
        char const* name;
        bool enabled;
        sim::FaultSettings faults;
        uint16_t answered;  // 2: request 1 was lost and request 2 is sent
    } const cases[] = {
        {"answers not enabled", false, {}, 2},
        {"stalled device", true, stalled, 2},
        {"answer held back", true, delayed, 1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        start(0x23);
        if (c.enabled) host_->enable(kCommandConfiguration);
        device_->faults().configure(c.faults);
        host_->writeCommands(lineCode(header(0x01, 1, {})), 20);
        EXPECT_EQ(host_->ask(kReadName), kZelmor);
        EXPECT_TRUE(host_->notifications(kCommandValue).empty());
        if (!c.enabled) host_->enable(kCommandConfiguration);
        if (c.answered == 2) device_->faults().configure({});
        std::vector<Frame> const answers = exchange(c.answered == 2 ? lineCode(header(0x01, 2, {})) : Bytes{}, 1);
        ASSERT_EQ(answers.size(), 1u);
        EXPECT_EQ(answers[0].sequence, c.answered);
        // The stream starts clean with the answer that went out.
        EXPECT_EQ(host_->notifications(kCommandValue).front().at(0), 0x00);
    }
}

TEST_F(SimBlePeer, PacedOutputComesInSmallerPieces) {
    start(0x23);
    host_->ask("02 f7 00");
    host_->enable(kCommandConfiguration);
    sim::FaultSettings paced;
    paced.bytesPerSecond = 2000;  // at most 100 bytes at once
    device_->faults().configure(paced);
    std::vector<Frame> const answers = exchange(lineCode(header(0x20, 1, {})), 1);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].payload.size(), 104u);
    EXPECT_GE(host_->notifications(kCommandValue).size(), 2u);
    for (Bytes const& n : host_->notifications(kCommandValue)) EXPECT_LE(n.size(), 100u);
}

TEST_F(SimBlePeer, SessionThatClosesItselfDropsTheLink) {
    start(0x23);
    host_->enable(kCommandConfiguration);
    sim::FaultSettings closing;
    closing.closeAfterBytes = 5;
    device_->faults().configure(closing);
    host_->writeCommands(lineCode(header(0x01, 1, {})), 20);
    Bytes received;
    while (std::optional<Bytes> pdu = host_->next()) {
        ASSERT_EQ(pdu->at(0), 0x1B);
        received.insert(received.end(), pdu->begin() + 3, pdu->end());
    }
    EXPECT_TRUE(host_->awaitHangUp());
    EXPECT_EQ(received.size(), 5u);
    EXPECT_TRUE(eventually([&] { return peer_->closed(); }));
}

// The frames' layout is pinned by the encoder's golden vectors; here they
// carry the device's readings, line-coded, in pieces of at most MTU - 3.
TEST_F(SimBlePeer, LiveDataFlowsAtTheIntervalOnceEnabled) {
    for (uint8_t revision : {0x23, 0x30}) {
        SCOPED_TRACE(int{revision});
        start(revision, {.liveDataIntervalMs = 20});
        host_->ask(kReadName);
        EXPECT_EQ(peer_->liveFramesSent(), 0u);
        host_->enable(kLiveDataConfiguration);
        while (framesOf(host_->notifications(kLiveDataValue)).size() < 5)
            ASSERT_TRUE(host_->awaitNotification(kLiveDataValue));
        std::string const expected = hex(sim::encodeLiveDataFrame(0x0132, revision, device_->readings()));
        for (Bytes const& frame : framesOf(host_->notifications(kLiveDataValue))) EXPECT_EQ(hex(frame), expected);
        for (Bytes const& n : host_->notifications(kLiveDataValue)) EXPECT_LE(n.size(), 20u);
        // The count goes up once the last piece is out, which may be after it arrived.
        EXPECT_TRUE(eventually([&] { return peer_->liveFramesSent() >= 5; }));
    }
}

TEST_F(SimBlePeer, CraftedNotificationsAreCutLikeTheDevicesOwn) {
    start(0x23, {.liveDataIntervalMs = 3600000});
    Bytes crafted(50);
    for (size_t i = 0; i < crafted.size(); ++i) crafted[i] = static_cast<uint8_t>(i + 1);
    EXPECT_FALSE(peer_->notify(kLiveDataValue, crafted));
    host_->enable(kLiveDataConfiguration);
    ASSERT_TRUE(peer_->notify(kLiveDataValue, crafted));
    Bytes joined;
    while (joined.size() < crafted.size()) {
        ASSERT_TRUE(host_->awaitNotification(kLiveDataValue));
        Bytes const& piece = host_->notifications(kLiveDataValue).back();
        EXPECT_EQ(piece.size(), std::min<size_t>(20, crafted.size() - joined.size()));
        joined.insert(joined.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(hex(joined), hex(crafted));
    EXPECT_EQ(peer_->liveFramesSent(), 0u);
}

TEST_F(SimBlePeer, LinkEndsFromEitherSide) {
    start(0x23);
    EXPECT_FALSE(peer_->closed());
    peer_->close();
    EXPECT_TRUE(peer_->closed());
    EXPECT_TRUE(host_->awaitHangUp());
    peer_->close();

    start(0x23, {.liveDataIntervalMs = 20});
    host_->enable(kLiveDataConfiguration);
    host_.reset();
    EXPECT_TRUE(eventually([&] { return peer_->closed(); }));
    EXPECT_FALSE(peer_->notify(kLiveDataValue, {0x01}));
}

TEST(SimBleRadio, AddressValueHasTheFirstFieldMostSignificant) {
    EXPECT_EQ(sim::bluetoothAddressValue({0x01, 0x02, 0x03, 0x04, 0x05, 0x06}), 0x010203040506u);
    EXPECT_EQ(sim::bluetoothAddressValue(sim::SimulatedDeviceConfig{}.bluetoothAddress), 0xC25A4C000001u);
}

/// Connects through the radio's host as a client does; the client's end.
int connectThrough(sim::BleRadio& radio, uint64_t address) {
    int const socket = radio.host().openAttSocket();
    EXPECT_GE(socket, 0);
    EXPECT_EQ(radio.host().connectAttSocket(socket, address, false), EINPROGRESS);
    return socket;
}

TEST(SimBleRadio, UnknownAddressIsHungUpAtOnce) {
    sim::BleRadio radio;
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x23, clock));
    radio.addDevice(0xC25A4C000001, device);
    HostEnd host(connectThrough(radio, 0xC25A4C000002));
    EXPECT_TRUE(host.awaitHangUp());
    EXPECT_EQ(radio.latestPeer(0xC25A4C000002), nullptr);
    EXPECT_EQ(radio.latestPeer(0xC25A4C000001), nullptr);
}

TEST(SimBleRadio, ConnectionsReachTheDeviceAtTheirAddress) {
    ManualClock clock;
    sim::SimulatedDeviceConfig first = configFor(0x23, clock);
    first.name = "Galley";
    sim::SimulatedDeviceConfig second = configFor(0x30, clock);
    second.name = "Bow";
    sim::SimulatedDevice galley(first);
    sim::SimulatedDevice bow(second);
    auto radio = std::make_unique<sim::BleRadio>();
    radio->addDevice(0xC25A4C000001, galley);
    radio->addDevice(0xC25A4C000002, bow, {.mtu = 64});

    HostEnd toGalley(connectThrough(*radio, 0xC25A4C000001));
    HostEnd toBow(connectThrough(*radio, 0xC25A4C000002));
    EXPECT_EQ(toGalley.ask(kReadName), "0b 47 61 6c 6c 65 79");
    EXPECT_EQ(toBow.ask(kReadName), "0b 42 6f 77");
    EXPECT_EQ(toBow.ask("02 f7 00"), "03 40 00");
    std::shared_ptr<sim::BleDevicePeer> const bowPeer = radio->latestPeer(0xC25A4C000002);
    ASSERT_NE(bowPeer, nullptr);
    EXPECT_EQ(bowPeer->mtu(), 64);

    // A second connection to the same device is its newest.
    std::shared_ptr<sim::BleDevicePeer> const galleyPeer = radio->latestPeer(0xC25A4C000001);
    HostEnd again(connectThrough(*radio, 0xC25A4C000001));
    EXPECT_EQ(again.ask(kReadName), "0b 47 61 6c 6c 65 79");
    ASSERT_NE(radio->latestPeer(0xC25A4C000001), nullptr);
    EXPECT_NE(radio->latestPeer(0xC25A4C000001), galleyPeer);
    EXPECT_FALSE(galleyPeer->closed());

    // The radio going away ends every link.
    radio.reset();
    EXPECT_TRUE(galleyPeer->closed());
    EXPECT_TRUE(bowPeer->closed());
    for (HostEnd* host : {&toGalley, &toBow, &again}) EXPECT_TRUE(host->awaitHangUp());
}

}  // namespace
