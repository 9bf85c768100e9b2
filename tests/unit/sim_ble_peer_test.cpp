// A simulated Bluetooth LE device on an ATT link, driven with raw PDUs over a
// socket pair: its GATT database, how answers and live data are cut into
// notifications, how the transport faults show there, and the radio that
// connects hosts to devices by address. The BleLink tests run the device
// protocol over this link end to end.
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "ble_radio.h"
#include "live_data_frame.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

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
    auto const deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

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
        device_ = std::make_unique<sim::SimulatedDevice>(onClock(model(revision), clock_));
        int pair[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
        host_ = std::make_unique<AttClient>(pair[0], kPatience);
        peer_ = std::make_unique<sim::BleDevicePeer>(pair[1], *device_, options);
    }
    void TearDown() override {
        peer_.reset();
        host_.reset();
    }

    /// The first answer on the command characteristic, once it has come.
    std::optional<Frame> awaitAnswer() {
        while (framesOf(host_->notifications(kCommandValue)).empty())
            if (!host_->awaitNotification(kCommandValue)) return std::nullopt;
        return parsePlain(framesOf(host_->notifications(kCommandValue)).front());
    }

    ManualClock clock_;
    std::unique_ptr<sim::SimulatedDevice> device_;
    std::unique_ptr<AttClient> host_;
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

// Request 1 goes out, then a read: the device handles PDUs in order and sends
// what a command brings before it reads on, so an answer to request 1 would
// be here before the name. What goes out comes in pieces of MTU - 3 bytes.
TEST_F(SimBlePeer, AnswersThatCannotGoOutAreDroppedOrHeldBack) {
    struct Case {
        char const* name;
        bool enabled;
        sim::FaultSettings faults;
        uint16_t answered;  // 2: request 1 was lost and request 2 is sent
    } const cases[] = {
        {"answers not enabled", false, {}, 2},
        {"stalled device", true, {.stalled = true}, 2},
        {"answer held back", true, {.answerDelayMs = 1000}, 1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        start(0x23);
        if (c.enabled) host_->enable(kCommandConfiguration);
        device_->faults().configure(c.faults);
        host_->writeCommands(kCommandValue, lineCode(header(0x01, 1, {})), 20);
        EXPECT_EQ(host_->ask(kReadName), kZelmor);
        EXPECT_TRUE(host_->notifications(kCommandValue).empty());
        if (!c.enabled) host_->enable(kCommandConfiguration);
        if (c.answered == 2) {
            device_->faults().configure({});
            host_->writeCommands(kCommandValue, lineCode(header(0x01, 2, {})), 20);
        }
        std::optional<Frame> const answer = awaitAnswer();
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->sequence, c.answered);
        std::vector<Bytes> const& pieces = host_->notifications(kCommandValue);
        ASSERT_GE(pieces.size(), 2u);
        EXPECT_EQ(pieces.front().at(0), 0x00);  // the stream starts clean
        for (size_t i = 0; i + 1 < pieces.size(); ++i) EXPECT_EQ(pieces[i].size(), 20u);
    }
}

TEST_F(SimBlePeer, PacedOutputComesInSmallerPieces) {
    start(0x23);
    host_->ask("02 f7 00");
    host_->enable(kCommandConfiguration);
    device_->faults().configure({.bytesPerSecond = 2000});  // at most 100 bytes at once
    host_->writeCommands(kCommandValue, lineCode(header(0x20, 1, {})), 244);
    std::optional<Frame> const answer = awaitAnswer();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->payload.size(), 104u);
    EXPECT_GE(host_->notifications(kCommandValue).size(), 2u);
    for (Bytes const& n : host_->notifications(kCommandValue)) EXPECT_LE(n.size(), 100u);
}

TEST_F(SimBlePeer, SessionThatClosesItselfDropsTheLinkAfterItsLastBytes) {
    start(0x23);
    host_->enable(kCommandConfiguration);
    device_->faults().configure({.closeAfterBytes = 5});
    host_->writeCommands(kCommandValue, lineCode(header(0x01, 1, {})), 20);
    Bytes received;
    while (std::optional<Bytes> pdu = host_->next()) {
        ASSERT_EQ(pdu->at(0), 0x1B);
        received.insert(received.end(), pdu->begin() + 3, pdu->end());
    }
    EXPECT_TRUE(host_->awaitHangUp());
    EXPECT_EQ(received.size(), 5u);
    EXPECT_TRUE(eventually([&] { return peer_->closed(); }));
}

// Live data and crafted notifications alike are cut into pieces of MTU - 3
// bytes; only the device's own records are counted.
TEST_F(SimBlePeer, LiveDataFlowsAtTheIntervalOnceEnabled) {
    start(0x23, {.liveDataIntervalMs = 20});
    Bytes crafted(50);
    for (size_t i = 0; i < crafted.size(); ++i) crafted[i] = static_cast<uint8_t>(i + 1);
    EXPECT_FALSE(peer_->notify(kLiveDataValue, crafted));
    host_->ask(kReadName);
    EXPECT_EQ(peer_->liveFramesSent(), 0u);
    host_->enable(kLiveDataConfiguration);
    while (framesOf(host_->notifications(kLiveDataValue)).size() < 3)
        ASSERT_TRUE(host_->awaitNotification(kLiveDataValue));
    std::string const expected = hex(sim::encodeLiveDataFrame(0x0132, 0x23, device_->readings()));
    for (Bytes const& frame : framesOf(host_->notifications(kLiveDataValue))) EXPECT_EQ(hex(frame), expected);
    // The count goes up once the last piece is out, which may be after it arrived.
    EXPECT_TRUE(eventually([&] { return peer_->liveFramesSent() >= 3; }));

    start(0x23, {.liveDataIntervalMs = 3600000});
    host_->enable(kLiveDataConfiguration);
    ASSERT_TRUE(peer_->notify(kLiveDataValue, crafted));
    std::vector<size_t> sizes;
    Bytes joined;
    while (joined.size() < crafted.size()) {
        ASSERT_TRUE(host_->awaitNotification(kLiveDataValue));
        Bytes const& piece = host_->notifications(kLiveDataValue).back();
        sizes.push_back(piece.size());
        joined.insert(joined.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(sizes, (std::vector<size_t>{20, 20, 10}));
    EXPECT_EQ(hex(joined), hex(crafted));
    EXPECT_EQ(peer_->liveFramesSent(), 0u);
}

/// Connects through the radio's host as a client does; the client's end.
std::unique_ptr<AttClient> connectThrough(sim::BleRadio& radio, uint64_t address) {
    int const socket = radio.host().openAttSocket();
    EXPECT_GE(socket, 0);
    EXPECT_EQ(radio.host().connectAttSocket(socket, address, false), EINPROGRESS);
    return std::make_unique<AttClient>(socket, kPatience);
}

// Each device answers at the value of its configured address; a second
// connection is the device's newest; the radio going away, or the host
// leaving, ends a link.
TEST(SimBleRadio, ConnectionsReachTheDeviceAtTheirAddress) {
    ManualClock clock;
    sim::SimulatedDeviceConfig first = onClock(model(0x23), clock);
    first.name = "Galley";
    sim::SimulatedDeviceConfig second = onClock(model(0x30), clock);
    second.name = "Bow";
    second.bluetoothAddress = {0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x02};
    sim::SimulatedDevice galley(first);
    sim::SimulatedDevice bow(second);
    auto radio = std::make_unique<sim::BleRadio>();
    radio->addDevice(sim::bluetoothAddressValue(first.bluetoothAddress), galley);
    radio->addDevice(sim::bluetoothAddressValue(second.bluetoothAddress), bow, {.mtu = 64});

    EXPECT_TRUE(connectThrough(*radio, 0xC25A4C000003)->awaitHangUp());
    EXPECT_EQ(radio->latestPeer(0xC25A4C000003), nullptr);
    EXPECT_EQ(radio->latestPeer(0xC25A4C000001), nullptr);
    std::unique_ptr<AttClient> toGalley = connectThrough(*radio, 0xC25A4C000001);
    std::unique_ptr<AttClient> toBow = connectThrough(*radio, 0xC25A4C000002);
    EXPECT_EQ(toGalley->ask(kReadName), "0b 47 61 6c 6c 65 79");
    EXPECT_EQ(toBow->ask(kReadName), "0b 42 6f 77");
    EXPECT_EQ(toBow->ask("02 f7 00"), "03 40 00");

    std::shared_ptr<sim::BleDevicePeer> const galleyPeer = radio->latestPeer(0xC25A4C000001);
    std::unique_ptr<AttClient> again = connectThrough(*radio, 0xC25A4C000001);
    EXPECT_EQ(again->ask(kReadName), "0b 47 61 6c 6c 65 79");
    ASSERT_NE(radio->latestPeer(0xC25A4C000001), nullptr);
    EXPECT_NE(radio->latestPeer(0xC25A4C000001), galleyPeer);
    EXPECT_FALSE(galleyPeer->closed());
    toGalley.reset();
    EXPECT_TRUE(eventually([&] { return galleyPeer->closed(); }));

    std::shared_ptr<sim::BleDevicePeer> const bowPeer = radio->latestPeer(0xC25A4C000002);
    radio.reset();
    EXPECT_TRUE(bowPeer->closed());
    EXPECT_TRUE(toBow->awaitHangUp());
    EXPECT_TRUE(again->awaitHangUp());
}

}  // namespace
