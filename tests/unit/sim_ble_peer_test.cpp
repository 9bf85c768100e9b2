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
#include <cstring>
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

constexpr uint16_t kNameHandle = 3;
constexpr uint16_t kLiveDataValue = 6;
constexpr uint16_t kLiveDataConfiguration = 7;
constexpr uint16_t kCommandValue = 9;
constexpr uint16_t kCommandConfiguration = 10;

// The device's UUIDs as the Attribute Protocol carries them, least significant
// byte first: ec7c000n-2c7b-1539-172f-29d041beab3e.
Bytes deviceUuid(uint8_t n) {
    return {0x3E, 0xAB, 0xBE, 0x41, 0xD0, 0x29, 0x2F, 0x17, 0x39, 0x15, 0x7B, 0x2C, n, 0x00, 0x7C, 0xEC};
}

/// Waits for a condition that another thread brings about; false when it never does.
bool eventually(std::function<bool()> const& condition) {
    Clock::time_point const deadline = Clock::now() + kPatience;
    while (!condition()) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

Bytes le16(uint16_t value) { return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)}; }

/// The host's end of one ATT link: PDUs out, PDUs in with a deadline, and the
/// notifications that arrive in between kept per characteristic.
class HostEnd {
public:
    explicit HostEnd(int socket) : socket_(socket) {}
    ~HostEnd() {
        if (socket_ >= 0) ::close(socket_);
    }
    HostEnd(HostEnd const&) = delete;
    HostEnd& operator=(HostEnd const&) = delete;

    void send(Bytes const& pdu) {
        ASSERT_EQ(::send(socket_, pdu.data(), pdu.size(), MSG_NOSIGNAL), static_cast<ssize_t>(pdu.size()));
    }

    /// The next PDU; nothing when the link ends or nothing comes in time.
    std::optional<Bytes> next() {
        Clock::time_point const deadline = Clock::now() + kPatience;
        for (;;) {
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) return std::nullopt;
            pollfd wait{socket_, POLLIN, 0};
            if (::poll(&wait, 1, static_cast<int>(left.count())) <= 0) continue;
            Bytes pdu(1024);
            ssize_t const got = ::recv(socket_, pdu.data(), pdu.size(), MSG_DONTWAIT);
            if (got < 0 && errno == EAGAIN) continue;
            if (got <= 0) {
                hungUp_ = true;
                return std::nullopt;
            }
            pdu.resize(static_cast<size_t>(got));
            return pdu;
        }
    }

    /// The next PDU that is not a notification; notifications are kept.
    std::optional<Bytes> answer() {
        for (;;) {
            std::optional<Bytes> pdu = next();
            if (!pdu || pdu->at(0) != 0x1B) return pdu;
            keep(*pdu);
        }
    }

    /// Sends a request and returns its answer.
    Bytes request(Bytes const& pdu) {
        send(pdu);
        return answer().value_or(Bytes{});
    }

    /// Waits for a notification of `handle`, keeping it; false on a timeout or hang-up.
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

    void exchangeMtu(uint16_t mtu) { EXPECT_EQ(request(concat({{0x02}, le16(mtu)})).at(0), 0x03); }
    void configure(uint16_t configuration, uint16_t bits) {
        EXPECT_EQ(hex(request(concat({{0x12}, le16(configuration), le16(bits)}))), "13");
    }
    /// Writes bytes to a characteristic with write commands of at most `piece` bytes.
    void writeCommands(uint16_t handle, Bytes const& bytes, size_t piece) {
        for (size_t at = 0; at < bytes.size(); at += piece) {
            Bytes pdu = concat({{0x52}, le16(handle)});
            pdu.insert(pdu.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), at + piece)));
            send(pdu);
        }
    }

    std::vector<Bytes> const& notifications(uint16_t handle) { return notifications_[handle]; }
    int socket() const { return socket_; }

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

    /// Sends request frames as one stream in pieces of MTU - 3 bytes and
    /// waits for `count` answers on the command characteristic.
    std::vector<Frame> exchange(Bytes const& stream, size_t count) {
        host_->writeCommands(kCommandValue, stream, peer_->mtu() - 3u);
        std::vector<Frame> answers;
        while (framesOf(host_->notifications(kCommandValue)).size() < count)
            if (!host_->awaitNotification(kCommandValue)) break;
        for (Bytes const& frame : framesOf(host_->notifications(kCommandValue)))
            if (std::optional<Frame> f = parsePlain(frame)) answers.push_back(*f);
        return answers;
    }

    ManualClock clock_;
    std::unique_ptr<sim::SimulatedDevice> device_;
    std::unique_ptr<HostEnd> host_;
    std::unique_ptr<sim::BleDevicePeer> peer_;
};

// --- The GATT database ---

struct Discovered {
    struct Service {
        uint16_t start, end;
        Bytes uuid;
    };
    struct Characteristic {
        uint16_t declaration;
        uint8_t properties;
        uint16_t value;
        Bytes uuid;
        uint16_t configuration = 0;
    };
    std::vector<Service> services;
    std::vector<Characteristic> characteristics;
    size_t requests = 0;
    size_t mostDeclarationsPerAnswer = 0;
};

/// Discovers everything as a client does: services, then each service's
/// characteristics, then each characteristic's descriptors.
Discovered discover(HostEnd& host) {
    Discovered d;
    auto ask = [&](Bytes const& pdu) {
        ++d.requests;
        return host.request(pdu);
    };
    for (uint16_t start = 1;;) {
        Bytes const a = ask(concat({{0x10}, le16(start), {0xFF, 0xFF, 0x00, 0x28}}));
        if (a.at(0) != 0x11) break;
        for (size_t at = 2; at + a[1] <= a.size(); at += a[1]) {
            d.services.push_back(
                {readLe<uint16_t>(&a[at]), readLe<uint16_t>(&a[at + 2]),
                 Bytes(a.begin() + static_cast<long>(at + 4), a.begin() + static_cast<long>(at + a[1]))});
            start = static_cast<uint16_t>(d.services.back().end + 1);
        }
    }
    for (Discovered::Service const& s : d.services) {
        for (uint16_t start = s.start;;) {
            Bytes const a = ask(concat({{0x08}, le16(start), le16(s.end), {0x03, 0x28}}));
            if (a.at(0) != 0x09) break;
            d.mostDeclarationsPerAnswer = std::max<size_t>(d.mostDeclarationsPerAnswer, (a.size() - 2) / a[1]);
            for (size_t at = 2; at + a[1] <= a.size(); at += a[1]) {
                d.characteristics.push_back(
                    {readLe<uint16_t>(&a[at]), a[at + 2], readLe<uint16_t>(&a[at + 3]),
                     Bytes(a.begin() + static_cast<long>(at + 5), a.begin() + static_cast<long>(at + a[1]))});
                start = static_cast<uint16_t>(d.characteristics.back().declaration + 1);
            }
        }
    }
    for (size_t i = 0; i < d.characteristics.size(); ++i) {
        Discovered::Characteristic& c = d.characteristics[i];
        uint16_t end = 0xFFFF;
        if (i + 1 < d.characteristics.size()) end = static_cast<uint16_t>(d.characteristics[i + 1].declaration - 1);
        for (Discovered::Service const& s : d.services)
            if (c.value >= s.start && c.value <= s.end) end = std::min(end, s.end);
        for (uint16_t start = static_cast<uint16_t>(c.value + 1); start <= end;) {
            Bytes const a = ask(concat({{0x04}, le16(start), le16(end)}));
            if (a.at(0) != 0x05) break;
            size_t const entry = a[1] == 0x01 ? 4 : 18;
            for (size_t at = 2; at + entry <= a.size(); at += entry) {
                uint16_t const handle = readLe<uint16_t>(&a[at]);
                if (entry == 4 && readLe<uint16_t>(&a[at + 2]) == 0x2902) c.configuration = handle;
                start = static_cast<uint16_t>(handle + 1);
            }
        }
    }
    return d;
}

std::string describe(Discovered const& d) {
    std::string out;
    for (auto const& s : d.services)
        out += "service " + std::to_string(s.start) + "-" + std::to_string(s.end) + " " + hex(s.uuid) + "\n";
    for (auto const& c : d.characteristics)
        out += "characteristic " + std::to_string(c.declaration) + " " + hex(&c.properties, 1) + " " +
               std::to_string(c.value) + " " + hex(c.uuid) + " cccd " + std::to_string(c.configuration) + "\n";
    return out;
}

std::string expectedDatabase(bool extra) {
    Discovered d;
    uint16_t const end = extra ? 12 : 10;
    d.services = {{1, 3, {0x00, 0x18}}, {4, end, deviceUuid(0)}};
    d.characteristics = {{2, 0x02, 3, {0x00, 0x2A}},
                         {5, 0x10, 6, deviceUuid(1), kLiveDataConfiguration},
                         {8, 0x14, 9, deviceUuid(2), kCommandConfiguration}};
    if (extra) d.characteristics.push_back({11, 0x02, 12, deviceUuid(3)});
    return describe(d);
}

TEST_F(SimBlePeer, DiscoveryFindsTheDeviceServiceAtEitherMtu) {
    struct Case {
        uint16_t mtu;
        size_t declarationsPerAnswer;
    };
    for (Case const c : {Case{23, 1}, Case{247, 2}}) {
        start(0x23);
        if (c.mtu != 23) host_->exchangeMtu(c.mtu);
        EXPECT_EQ(peer_->mtu(), c.mtu);
        Discovered const d = discover(*host_);
        EXPECT_EQ(describe(d), expectedDatabase(false)) << c.mtu;
        EXPECT_EQ(d.mostDeclarationsPerAnswer, c.declarationsPerAnswer) << c.mtu;
        EXPECT_EQ(peer_->liveDataHandle(), kLiveDataValue);
        EXPECT_EQ(peer_->commandHandle(), kCommandValue);
        TearDown();
    }
}

TEST_F(SimBlePeer, ForeignFirmwareHasAThirdCharacteristic) {
    start(0x23, {.mtu = 100, .extraCharacteristic = true, .liveDataIntervalMs = 1000});
    host_->exchangeMtu(247);
    EXPECT_EQ(peer_->mtu(), 100);
    Discovered const d = discover(*host_);
    EXPECT_EQ(describe(d), expectedDatabase(true));
    EXPECT_EQ(d.mostDeclarationsPerAnswer, 3u);
}

TEST_F(SimBlePeer, DeviceNameIsReadable) {
    start(0x30);
    // The model name, cut to the eight characters a Bluetooth model keeps.
    EXPECT_EQ(hex(host_->request({0x0A, kNameHandle, 0x00})),
              hex(concat({{0x0B}, {'Z', 'e', 'l', 'm', 'o', 'r', '-', '7'}})));
}

// --- Commands and answers ---

TEST_F(SimBlePeer, CommandsWrittenInPiecesAreAnsweredInNotificationsOfAtMostMtuMinusThree) {
    for (uint16_t mtu : {uint16_t{23}, uint16_t{247}}) {
        start(0x23);
        if (mtu != 23) host_->exchangeMtu(mtu);
        host_->configure(kCommandConfiguration, 0x0001);
        // Five info requests and a configuration read, frame boundaries falling inside pieces.
        Bytes stream;
        for (uint16_t sequence = 1; sequence <= 5; ++sequence) {
            Bytes const frame = lineCode(header(0x01, sequence, {}));
            stream.insert(stream.end(), frame.begin(), frame.end());
        }
        Bytes const config = lineCode(header(0x20, 6, {}));
        stream.insert(stream.end(), config.begin(), config.end());
        std::vector<Frame> const answers = exchange(stream, 6);

        ASSERT_EQ(answers.size(), 6u) << mtu;
        for (uint16_t i = 0; i < 5; ++i) {
            EXPECT_EQ(answers[i].code, 0);
            EXPECT_EQ(answers[i].sequence, i + 1);
            // Firmware 1.32, revision 0x23, address, unlocked, "Zelmor" in 8 bytes.
            EXPECT_EQ(hex(answers[i].payload), "32 01 23 c2 5a 4c 00 00 01 00 5a 65 6c 6d 6f 72 00 00");
        }
        EXPECT_EQ(answers[5].code, 0);
        EXPECT_EQ(answers[5].sequence, 6);
        EXPECT_EQ(answers[5].payload.size(), 104u);
        size_t pieces = 0;
        for (Bytes const& n : host_->notifications(kCommandValue)) {
            EXPECT_FALSE(n.empty());
            EXPECT_LE(n.size(), mtu - 3u);
            ++pieces;
        }
        // The configuration answer alone needs several pieces at the smallest MTU.
        if (mtu == 23) {
            EXPECT_GT(pieces, 10u);
        }
        TearDown();
    }
}

TEST_F(SimBlePeer, AnswersAreDroppedUntilTheHostEnablesThem) {
    start(0x23);
    host_->writeCommands(kCommandValue, lineCode(header(0x01, 1, {})), 20);
    // The device handles PDUs in order and sends an answer before it reads on,
    // so whatever the command brought would be here before the read's answer.
    EXPECT_EQ(host_->request({0x0A, kNameHandle, 0x00}).at(0), 0x0B);
    EXPECT_TRUE(host_->notifications(kCommandValue).empty());

    host_->configure(kCommandConfiguration, 0x0001);
    std::vector<Frame> const answers = exchange(lineCode(header(0x01, 2, {})), 1);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].sequence, 2);
    // The first answer was never sent: the stream starts clean with the second.
    EXPECT_EQ(host_->notifications(kCommandValue).front().at(0), 0x00);
}

// --- Live data ---

struct LiveField {
    char const* name;
    size_t fullOffset;
    size_t shortOffset;  // SIZE_MAX: not in the short form
    size_t size;
};
constexpr LiveField kLiveFields[] = {
    {"firmware", 0, 0, 2},    {"revision", 2, 2, 1},          {"time", 3, 3, 4},          {"status", 7, 7, 4},
    {"voltage 1", 11, 11, 4}, {"voltage 2", 15, SIZE_MAX, 4}, {"current", 19, 15, 4},     {"power", 23, 19, 4},
    {"coulombs", 27, 23, 8},  {"energy", 35, 31, 8},          {"temperature", 43, 39, 4}, {"power status", 47, 43, 1},
    {"charge", 48, 44, 1},    {"runtime", 49, 45, 2},
};

/// The fields of a live-data record in the order of the table above.
std::vector<Bytes> fieldsOf(uint16_t firmware, uint8_t revision, sim::MonitorReadings const& r) {
    Bytes all;
    ByteWriter w(all);
    w.write<uint16_t>(firmware).write<uint8_t>(revision).write<uint32_t>(r.time).write<uint32_t>(r.status);
    w.write<float>(r.voltage1).write<float>(r.voltage2).write<float>(r.current).write<float>(r.power);
    w.write<int64_t>(r.coulombMeter).write<int64_t>(r.energyMeter).write<float>(r.temperature);
    w.write<uint8_t>(static_cast<uint8_t>(r.powerStatus)).write<uint8_t>(r.stateOfCharge).write<uint16_t>(r.runtime);
    std::vector<Bytes> fields;
    size_t at = 0;
    for (LiveField const& f : kLiveFields) {
        fields.emplace_back(all.begin() + static_cast<long>(at), all.begin() + static_cast<long>(at + f.size));
        at += f.size;
    }
    return fields;
}

void expectLiveRecord(Bytes const& frame, uint16_t firmware, uint8_t revision, sim::MonitorReadings const& r) {
    bool const full = revision < 0x30;
    ASSERT_EQ(frame.size(), full ? sim::kLiveDataFrameSize : sim::kLiveDataShortFrameSize);
    std::vector<Bytes> const fields = fieldsOf(firmware, revision, r);
    for (size_t i = 0; i < std::size(kLiveFields); ++i) {
        size_t const offset = full ? kLiveFields[i].fullOffset : kLiveFields[i].shortOffset;
        if (offset == SIZE_MAX) continue;
        Bytes const got(frame.begin() + static_cast<long>(offset),
                        frame.begin() + static_cast<long>(offset + kLiveFields[i].size));
        EXPECT_EQ(hex(got), hex(fields[i])) << kLiveFields[i].name;
    }
}

TEST(SimLiveDataFrame, FieldsSitAtTheirOffsetsInBothForms) {
    sim::MonitorReadings r;
    r.time = 0x11223344;
    r.status = 0x00000005;
    r.voltage1 = 13.25f;
    r.voltage2 = 12.75f;
    r.current = -4.5f;
    r.power = -59.625f;
    r.temperature = 21.5f;
    r.coulombMeter = -123456789012;
    r.energyMeter = 987654321098;
    r.powerStatus = sim::PowerStatus::LowVoltageDisconnect;
    r.stateOfCharge = 87;
    r.runtime = 0x1234;
    for (uint8_t revision : {0x20, 0x23, 0x30, 0x31}) {
        Bytes const frame = sim::encodeLiveDataFrame(0x0251, revision, r);
        expectLiveRecord(frame, 0x0251, revision, r);
    }
}

TEST_F(SimBlePeer, LiveDataFlowsAtTheIntervalOnceEnabled) {
    struct Case {
        uint8_t revision;
        size_t size;
    };
    for (Case const c : {Case{0x23, 51}, Case{0x30, 47}}) {
        start(c.revision, {.mtu = 247, .extraCharacteristic = false, .liveDataIntervalMs = 20});
        EXPECT_EQ(host_->request({0x0A, kNameHandle, 0x00}).at(0), 0x0B);
        EXPECT_EQ(peer_->liveFramesSent(), 0u);
        host_->configure(kLiveDataConfiguration, 0x0001);
        while (framesOf(host_->notifications(kLiveDataValue)).size() < 5)
            ASSERT_TRUE(host_->awaitNotification(kLiveDataValue));

        sim::MonitorReadings const readings = device_->readings();
        for (Bytes const& frame : framesOf(host_->notifications(kLiveDataValue))) {
            ASSERT_EQ(frame.size(), c.size);
            expectLiveRecord(frame, 0x0132, c.revision, readings);
        }
        for (Bytes const& n : host_->notifications(kLiveDataValue)) EXPECT_LE(n.size(), 20u);
        // The count goes up once the last piece is out, which may be after it arrived.
        EXPECT_TRUE(eventually([&] { return peer_->liveFramesSent() >= 5; }));
        TearDown();
    }
}

TEST_F(SimBlePeer, CraftedNotificationsAreCutLikeTheDevicesOwn) {
    start(0x23, {.mtu = 247, .extraCharacteristic = false, .liveDataIntervalMs = 3600000});
    Bytes crafted(50);
    for (size_t i = 0; i < crafted.size(); ++i) crafted[i] = static_cast<uint8_t>(i + 1);
    EXPECT_FALSE(peer_->notify(kLiveDataValue, crafted));
    host_->configure(kLiveDataConfiguration, 0x0001);
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

// --- Transport faults ---

TEST_F(SimBlePeer, StalledDeviceLosesWhatTheHostWrites) {
    start(0x23);
    host_->configure(kCommandConfiguration, 0x0001);
    sim::FaultSettings stalled;
    stalled.stalled = true;
    device_->faults().configure(stalled);
    host_->writeCommands(kCommandValue, lineCode(header(0x01, 1, {})), 20);
    EXPECT_EQ(host_->request({0x0A, kNameHandle, 0x00}).at(0), 0x0B);
    EXPECT_TRUE(host_->notifications(kCommandValue).empty());

    device_->faults().configure({});
    std::vector<Frame> const answers = exchange(lineCode(header(0x01, 2, {})), 1);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].sequence, 2);
}

TEST_F(SimBlePeer, PacedOutputComesInSmallerPieces) {
    start(0x23);
    host_->exchangeMtu(247);
    host_->configure(kCommandConfiguration, 0x0001);
    sim::FaultSettings paced;
    paced.bytesPerSecond = 2000;  // at most 100 bytes at once
    device_->faults().configure(paced);
    std::vector<Frame> const answers = exchange(lineCode(header(0x20, 1, {})), 1);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].payload.size(), 104u);
    EXPECT_GE(host_->notifications(kCommandValue).size(), 2u);
    for (Bytes const& n : host_->notifications(kCommandValue)) EXPECT_LE(n.size(), 100u);
}

TEST_F(SimBlePeer, HeldBackAnswerLetsLaterRequestsPass) {
    start(0x23);
    host_->configure(kCommandConfiguration, 0x0001);
    sim::FaultSettings delayed;
    delayed.answerDelayMs = 1000;
    device_->faults().configure(delayed);
    host_->writeCommands(kCommandValue, lineCode(header(0x01, 1, {})), 20);
    EXPECT_EQ(host_->request({0x0A, kNameHandle, 0x00}).at(0), 0x0B);
    EXPECT_TRUE(host_->notifications(kCommandValue).empty());
    std::vector<Frame> const answers = exchange({}, 1);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].sequence, 1);
}

TEST_F(SimBlePeer, SessionThatClosesItselfDropsTheLink) {
    start(0x23);
    host_->configure(kCommandConfiguration, 0x0001);
    sim::FaultSettings closing;
    closing.closeAfterBytes = 5;
    device_->faults().configure(closing);
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

// --- The link's end ---

TEST_F(SimBlePeer, PeerEndsWhenTheHostHangsUp) {
    start(0x23, {.mtu = 247, .extraCharacteristic = false, .liveDataIntervalMs = 20});
    host_->configure(kLiveDataConfiguration, 0x0001);
    host_.reset();
    EXPECT_TRUE(eventually([&] { return peer_->closed(); }));
    EXPECT_FALSE(peer_->notify(kLiveDataValue, {0x01}));
}

TEST_F(SimBlePeer, CloseHangsUpOnTheHost) {
    start(0x23);
    EXPECT_FALSE(peer_->closed());
    peer_->close();
    EXPECT_TRUE(peer_->closed());
    EXPECT_TRUE(host_->awaitHangUp());
    peer_->close();
}

// --- The radio ---

TEST(SimBleRadio, AddressValueHasTheFirstFieldMostSignificant) {
    EXPECT_EQ(sim::bluetoothAddressValue({0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01}), 0xC25A4C000001u);
    EXPECT_EQ(sim::bluetoothAddressValue(sim::SimulatedDeviceConfig{}.bluetoothAddress), 0xC25A4C000001u);
    EXPECT_EQ(sim::bluetoothAddressValue({0x01, 0x02, 0x03, 0x04, 0x05, 0x06}), 0x010203040506u);
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
    radio->addDevice(0xC25A4C000002, bow, {.mtu = 64, .extraCharacteristic = false, .liveDataIntervalMs = 1000});

    HostEnd toGalley(connectThrough(*radio, 0xC25A4C000001));
    HostEnd toBow(connectThrough(*radio, 0xC25A4C000002));
    EXPECT_EQ(hex(toGalley.request({0x0A, kNameHandle, 0x00})), hex(concat({{0x0B}, {'G', 'a', 'l', 'l', 'e', 'y'}})));
    EXPECT_EQ(hex(toBow.request({0x0A, kNameHandle, 0x00})), hex(concat({{0x0B}, {'B', 'o', 'w'}})));
    EXPECT_EQ(hex(toBow.request({0x02, 0xF7, 0x00})), "03 40 00");
    std::shared_ptr<sim::BleDevicePeer> const bowPeer = radio->latestPeer(0xC25A4C000002);
    ASSERT_NE(bowPeer, nullptr);
    EXPECT_EQ(bowPeer->mtu(), 64);

    // A second connection to the same device is its newest.
    std::shared_ptr<sim::BleDevicePeer> const galleyPeer = radio->latestPeer(0xC25A4C000001);
    HostEnd again(connectThrough(*radio, 0xC25A4C000001));
    EXPECT_EQ(again.request({0x0A, kNameHandle, 0x00}).at(0), 0x0B);
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
