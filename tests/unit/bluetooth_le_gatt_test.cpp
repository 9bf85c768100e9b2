// The GATT client against scripted devices on a socket pair, every PDU it
// sends compared byte for byte: its operations, the MTU rule, notifications,
// the protocol violations that end the link, misuse, and links that stall or
// start again. A script lists, in spaced hexadecimal, the ATT PDUs the client
// must send and what the device answers, in order.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bluetooth_le.h"
#include "callback_result.h"
#include "reports.h"
#include "socket_pair_bluetooth_host.h"
#include "test_bytes.h"

namespace {

using Reason = BluetoothLE::DisconnectReason;
using Characteristic = BluetoothLE::Characteristic;

constexpr uint64_t kAddress = 0xC25A4C000001;

struct AttStep {
    bool fromClient;
    std::string bytes;
};
using AttScript = std::vector<AttStep>;

AttStep fromClient(std::string bytes) { return {true, std::move(bytes)}; }
AttStep toClient(std::string bytes) { return {false, std::move(bytes)}; }

AttScript operator+(AttScript head, AttScript const& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

/// `count` bytes first, first + 1, ... in spaced hexadecimal, for long values.
std::string byteRun(uint8_t first, size_t count) {
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(first + i);
    return hex(bytes);
}

/// The device's end of one connection. Owns the descriptor.
class AttPeer {
public:
    explicit AttPeer(int socket) : socket_(socket) {}
    ~AttPeer() { close(); }

    void close() {
        if (socket_ >= 0) ::close(std::exchange(socket_, -1));
    }

    void send(std::string const& bytes) { ASSERT_TRUE(trySend(bytes)); }

    /// False when the client has hung up.
    bool trySend(std::string const& bytes) {
        std::vector<uint8_t> const pdu = fromHex(bytes);
        return ::send(socket_, pdu.data(), pdu.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(pdu.size());
    }

    /// The next PDU the client sends; empty when it closed or stayed silent.
    std::vector<uint8_t> receive() {
        pollfd ready{socket_, POLLIN, 0};
        uint8_t buffer[1024];
        if (::poll(&ready, 1, static_cast<int>(kReportPatience.count() * 1000)) <= 0) return {};
        ssize_t const received = ::recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
        return std::vector<uint8_t>(buffer, buffer + std::max<ssize_t>(received, 0));
    }

    /// Plays the script; the first difference fails with both PDUs in hexadecimal.
    testing::AssertionResult play(AttScript const& script) {
        for (size_t i = 0; i < script.size(); ++i) {
            if (!script[i].fromClient) {
                send(script[i].bytes);
                continue;
            }
            // "nothing" when no PDU comes in time or the client closed.
            pollfd ready{socket_, POLLIN, 0};
            uint8_t buffer[1024];
            bool const arrived = ::poll(&ready, 1, static_cast<int>(kReportPatience.count() * 1000)) > 0;
            ssize_t const received = arrived ? ::recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT) : 0;
            std::string const got = received > 0 ? hex(buffer, static_cast<size_t>(received)) : "nothing";
            std::string const expected = hex(fromHex(script[i].bytes));
            if (got != expected)
                return testing::AssertionFailure()
                       << "step " << i << ":\n  expected [" << expected << "]\n  got      [" << got << "]";
        }
        return testing::AssertionSuccess();
    }

private:
    int socket_;
};

// The device database the discovery script describes, paged as a device
// might page it:
//   0x0001-0x0007 service 180f
//     0x0002 characteristic 2a1a, read|write, value 0x0003, no CCCD
//     0x0004 characteristic 2a19, read|notify, value 0x0005, CCCD 0x0006
//   0x0010-0x0018 service ec7c0000-2c7b-1539-172f-29d041beab3e
//     0x0011 characteristic ec7c0001-..., indicate, value 0x0012, CCCD 0x0013
//     0x0014 characteristic ec7c0002-..., all five properties, value 0x0015, CCCD 0x0016
std::string deviceUuid(char const* number) {
    return std::string("3e ab be 41 d0 29 2f 17 39 15 7b 2c ") + number + " 00 7c ec";
}

AttStep const kServicesRequest = fromClient("10 01 00 ff ff 00 28");
AttStep const kDeclarationsRequest = fromClient("08 01 00 ff ff 03 28");
AttStep const kDescriptorsRequest = fromClient("08 01 00 ff ff 02 29");
// clang-format off
AttScript const kDiscovery = {
    kServicesRequest, toClient("11 06 01 00 07 00 0f 18"),
    fromClient("10 08 00 ff ff 00 28"), toClient("11 14 10 00 18 00 " + deviceUuid("00")),
    fromClient("10 19 00 ff ff 00 28"), toClient("01 10 19 00 0a"),
    kDeclarationsRequest, toClient("09 07 02 00 0a 03 00 1a 2a 04 00 12 05 00 19 2a"),
    fromClient("08 05 00 ff ff 03 28"), toClient("09 15 11 00 20 12 00 " + deviceUuid("01")),
    fromClient("08 12 00 ff ff 03 28"), toClient("09 15 14 00 3e 15 00 " + deviceUuid("02")),
    fromClient("08 15 00 ff ff 03 28"), toClient("01 08 15 00 0a"),
    kDescriptorsRequest, toClient("09 04 06 00 00 00 13 00 00 00"),
    fromClient("08 14 00 ff ff 02 29"), toClient("09 04 16 00 00 00"),
    fromClient("08 17 00 ff ff 02 29"), toClient("01 08 17 00 0a"),
};
// clang-format on
AttStep const kMtuRequest = fromClient("02 f7 00");

Characteristic& characteristicOf(BluetoothLE& ble, uint16_t valueHandle) {
    for (auto& service : ble.services())
        for (auto& characteristic : service.characteristics)
            if (characteristic.valueHandle == valueHandle) return characteristic;
    throw std::runtime_error("no characteristic with value handle " + std::to_string(valueHandle));
}

struct Connection {
    std::shared_ptr<AttPeer> peer;
    uint64_t address;
    bool publicAddress;
};

// One client on a socket-pair host, the connections it made and what it
// reports: how links ended, and notifications and indications as "handle: bytes".
struct ScriptedLink {
    Reports<Connection> peers;
    // Sent by the device before the client has seen its first link come up.
    std::string greeting;
    sim::SocketPairBluetoothHost host{[this](int socket, uint64_t address, bool publicAddress) {
        auto const peer = std::make_shared<AttPeer>(socket);
        if (!greeting.empty()) peer->send(std::exchange(greeting, {}));
        peers.add({peer, address, publicAddress});
    }};
    Reports<Reason> ends;
    Reports<std::string> notifications;
    BluetoothLE ble{host};

    ScriptedLink() { ble.setDisconnectedCallback(ends.callback()); }

    /// The device's end, once the link is up; at() fails the test when it never came up.
    std::shared_ptr<AttPeer> connect() {
        size_t const before = peers.all().size();
        ble.connect(kAddress, false);
        std::shared_ptr<AttPeer> const peer = peers.wait(before + 1).at(before).peer;
        EXPECT_TRUE(eventually([this] { return ble.state() == BluetoothLE::State::Connected; }));
        return peer;
    }

    /// Discovers kDiscovery's database; every characteristic reports to notifications.
    void discover(AttPeer& peer) {
        CallbackResult<> discovered;
        ble.discoverServices([this, done = discovered.callback()] {
            for (auto& service : ble.services())
                for (auto& characteristic : service.characteristics)
                    characteristic.handler = [this, handle = characteristic.valueHandle](uint8_t const* data,
                                                                                         size_t length) {
                        notifications.add(std::to_string(handle) + ": " + hex(data, length));
                    };
            done();
        });
        ASSERT_TRUE(peer.play(kDiscovery));
        discovered.get(kReportPatience);
    }
};

using Action = std::function<void(BluetoothLE&)>;
/// An operation that hands what it finished with, as text, to `finished`.
using Operation = std::function<void(BluetoothLE&, std::function<void(std::string)> finished)>;

template <class Operation>
std::string thrownBy(Operation operation) {
    try {
        operation();
    } catch (BluetoothLE::Exception const& e) {
        return e.what();
    }
    return "nothing thrown";
}

// The services found, handles and properties in hexadecimal.
void discover(BluetoothLE& ble, std::function<void(std::string)> finished) {
    ble.discoverServices([&ble, finished] {
        std::ostringstream got;
        got << std::hex;
        for (BluetoothLE::Service const& service : ble.services()) {
            got << service.startHandle << "-" << service.endHandle << " " << service.uuid.toString() << ":";
            for (Characteristic const& c : service.characteristics)
                got << " " << c.declarationHandle << " " << int{c.properties} << " " << c.valueHandle << " "
                    << c.uuid.toString() << " ccc " << c.cccHandle << ";";
        }
        finished(got.str());
    });
}

Operation read(uint16_t handle) {
    return [handle](BluetoothLE& ble, auto finished) {
        characteristicOf(ble, handle).read([finished](uint8_t const* data, size_t length) {
            finished(hex(data, length));
        });
    };
}

Operation write(uint16_t handle, std::string value) {
    return [handle, value](BluetoothLE& ble, auto finished) {
        characteristicOf(ble, handle).write(fromHex(value), [finished] { finished("done"); });
    };
}

Operation configure(uint16_t handle, bool notify, bool indicate) {
    return [=](BluetoothLE& ble, auto finished) {
        characteristicOf(ble, handle).setNotify(notify, indicate, [finished] { finished("done"); });
    };
}

Operation mtu(unsigned asked) {
    return [asked](BluetoothLE& ble, auto finished) {
        ble.exchangeMtu(asked, [&ble, finished] { finished("MTU " + std::to_string(ble.mtu())); });
    };
}

std::string ended(Reason reason) { return "link ended, reason " + std::to_string(static_cast<int>(reason)); }

// One row, one exchange on a fresh link: what the operation finished with, or
// how the link ended. At the default MTU of 23 reads answered with 22 bytes
// continue and writes of more than 20 bytes go out in Prepare Write pieces of
// 18. The client takes the device's MTU kept within 23 and 512, whatever it
// asked.
TEST(BluetoothLEExchanges, EachSendsItsPdusByteForByte) {
    auto const echo = [](std::string const& request) { return toClient("17" + request.substr(2)); };
    std::string const twenty = byteRun(1, 20);
    std::string const piece1 = "16 15 00 00 00 " + byteRun(1, 18);
    std::string const piece2 = "16 15 00 12 00 " + byteRun(19, 18);
    std::string const piece3 = "16 15 00 24 00 " + byteRun(37, 4);
    std::string const uuid = "-2c7b-1539-172f-29d041beab3e";
    AttScript const oneService = {kServicesRequest, toClient("11 06 01 00 ff ff 0f 18"), kDeclarationsRequest};
    // Attribute Not Found for the declarations: on to the descriptors.
    AttScript const noCharacteristics = oneService + AttScript{toClient("01 08 01 00 0a"), kDescriptorsRequest};
    std::string const violation = ended(Reason::ProtocolViolation);
    std::string const error = ended(Reason::ErrorResponse);
    struct Case {
        char const* name;
        Operation act;
        AttScript script;
        std::string outcome;
    } const cases[] = {
        {"discovery pages through each step and joins the lists", discover, kDiscovery,
         "1-7 180f: 2 a 3 2a1a ccc 0; 4 12 5 2a19 ccc 6;10-18 ec7c0000" + uuid + ": 11 20 12 ec7c0001" + uuid +
             " ccc 13; 14 3e 15 ec7c0002" + uuid + " ccc 16;"},
        {"discovery step ending at the last handle without another page", discover,
         noCharacteristics + AttScript{toClient("01 08 01 00 0a")}, "1-ffff 180f:"},
        {"read in one answer", read(3), {fromClient("0a 03 00"), toClient("0b 01 02 03")}, "01 02 03"},
        {"read continued with Read Blob",
         read(5),
         {fromClient("0a 05 00"), toClient("0b " + byteRun(0, 22)), fromClient("0c 05 00 16 00"),
          toClient("0d " + byteRun(22, 22)), fromClient("0c 05 00 2c 00"), toClient("0d " + byteRun(44, 5))},
         byteRun(0, 49)},
        {"read of 22 bytes ended by an empty blob",
         read(5),
         {fromClient("0a 05 00"), toClient("0b " + byteRun(0, 22)), fromClient("0c 05 00 16 00"), toClient("0d")},
         byteRun(0, 22)},
        {"20-byte write", write(0x15, twenty), {fromClient("12 15 00 " + twenty), toClient("13")}, "done"},
        {"long write",
         write(0x15, byteRun(1, 40)),
         {fromClient(piece1), echo(piece1), fromClient(piece2), echo(piece2), fromClient(piece3), echo(piece3),
          fromClient("18 01"), toClient("19")},
         "done"},
        {"notifications on", configure(5, true, false), {fromClient("12 06 00 01 00"), toClient("13")}, "done"},
        {"indications on", configure(0x15, false, true), {fromClient("12 16 00 02 00"), toClient("13")}, "done"},
        {"MTU above 512", mtu(247), {kMtuRequest, toClient("03 58 02")}, "MTU 512"},
        {"MTU below what was asked", mtu(247), {kMtuRequest, toClient("03 64 00")}, "MTU 100"},
        {"MTU of 3 taken as the minimum", mtu(247), {kMtuRequest, toClient("03 03 00")}, "MTU 23"},
        {"MTU of 1 taken as the minimum", mtu(247), {kMtuRequest, toClient("03 01 00")}, "MTU 23"},
        {"notification shorter than 3 bytes", nullptr, {toClient("1b 03")}, violation},
        {"indication shorter than 3 bytes", nullptr, {toClient("1d 15")}, violation},
        {"answer with nothing pending", nullptr, {toClient("0b 01 02")}, violation},
        {"answer of the wrong opcode", mtu(247), {kMtuRequest, toClient("0b 00")}, violation},
        {"error response for another request", mtu(247), {kMtuRequest, toClient("01 0a 03 00 0a")}, violation},
        {"error response cut short", mtu(247), {kMtuRequest, toClient("01 02 00")}, violation},
        {"error response with the command flag",
         read(3),
         {fromClient("0a 03 00"), toClient("41 0a 03 00 02")},
         violation},
        {"error response to the MTU exchange", mtu(247), {kMtuRequest, toClient("01 02 00 00 06")}, error},
        {"error response to a read", read(3), {fromClient("0a 03 00"), toClient("01 0a 03 00 02")}, error},
        {"error response to write", write(0x15, "01"), {fromClient("12 15 00 01"), toClient("01 12 15 00 03")}, error},
        {"MTU request too long", nullptr, {toClient("02 64 00 00")}, error},
        {"MTU request too short", nullptr, {toClient("02 64")}, error},
        {"partial group entry", discover, {kServicesRequest, toClient("11 06 01 00 07 00 0f 18 01")}, violation},
        {"group entries of 7 bytes", discover, {kServicesRequest, toClient("11 07 01 00 07 00 0f 18 00")}, violation},
        {"group page without entries", discover, {kServicesRequest, toClient("11 06")}, violation},
        {"declarations of 6 bytes", discover, oneService + AttScript{toClient("09 06 02 00 12 03 00 19")}, violation},
        {"partial declaration", discover, oneService + AttScript{toClient("09 07 02 00 12 03 00 19 2a 05")}, violation},
        {"5-byte descriptors", discover, noCharacteristics + AttScript{toClient("09 05 04 00 00 00 00")}, violation},
        {"discovery error other than Not Found", discover, {kServicesRequest, toClient("01 10 01 00 02")}, error},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLink link;
        Reports<std::string> outcome;
        link.ble.setDisconnectedCallback([outcome](Reason reason) mutable { outcome.add(ended(reason)); });
        auto const peer = link.connect();
        // Rows that discover script it themselves; the others work on kDiscovery's database.
        if (c.script.front().bytes != kServicesRequest.bytes) link.discover(*peer);
        if (c.act) c.act(link.ble, outcome.callback());
        ASSERT_TRUE(peer->play(c.script));
        EXPECT_EQ(outcome.wait(1), std::vector<std::string>{c.outcome});
    }
}

/// A link up, kDiscovery's database discovered.
class DiscoveredLink : public testing::Test {
protected:
    void SetUp() override { link.discover(*peer); }

    ScriptedLink link;
    std::shared_ptr<AttPeer> const peer = link.connect();
};

// Unknown handles are ignored, indications confirmed before delivery, a
// multiple-value notification delivered up to a truncated entry, and all that
// came before the hang-up delivered.
TEST_F(DiscoveredLink, DeliversWhatTheDeviceSends) {
    peer->send("1b 09 00 aa");
    peer->send("1b 05 00 01 02");
    peer->send("1b 03 00");
    ASSERT_TRUE(peer->play({toClient("1d 15 00 07 08"), fromClient("1e")}));
    peer->send("23 05 00 02 00 aa bb 09 00 01 00 99 12 00 01 00 cc 15 00 05 00 dd");
    link.notifications.wait(5);
    EXPECT_TRUE(link.ends.all().empty());
    peer->send("1b 12 00 02");
    peer->close();
    EXPECT_EQ(link.ends.wait(1), std::vector<Reason>{Reason::LinkLost});
    EXPECT_EQ(link.notifications.wait(6),
              (std::vector<std::string>{"5: 01 02", "3: ", "21: 07 08", "5: aa bb", "18: cc", "18: 02"}));
}

// Misuse throws and sends nothing. Every operation needs the link: the
// characteristics' operations check it in one place, the queue in another.
TEST_F(DiscoveredLink, MisuseThrowsWithoutSendingAnything) {
    static std::vector<uint8_t> const value(21, 0x5A);
    auto const on = [](uint16_t handle, std::function<void(Characteristic&)> use) {
        return [=](BluetoothLE& ble) { use(characteristicOf(ble, handle)); };
    };
    // A copy of the characteristic at 0x15 with no value handle.
    auto const atHandleZero = [](std::function<void(Characteristic&)> use) {
        return [=](BluetoothLE& ble) {
            Characteristic zero = characteristicOf(ble, 0x15);
            zero.valueHandle = 0;
            use(zero);
        };
    };
    struct Case {
        char const* name;
        Action act;
        char const* message;
    } const cases[] = {
        {"write command longer than MTU - 3", on(0x15, [](auto& c) { c.writeWithoutResponse(value.data(), 21); }),
         BluetoothLE::kLengthOverMtu},
        {"notify without the notify bit", on(0x12, [](auto& c) { c.setNotify(true, false, {}); }),
         BluetoothLE::kNoNotify},
        {"indicate without the indicate bit", on(5, [](auto& c) { c.setNotify(false, true, {}); }),
         BluetoothLE::kNoIndicate},
        {"notify without a CCCD", on(3, [](auto& c) { c.setNotify(true, false, {}); }), BluetoothLE::kInvalidCccHandle},
        {"read without the read bit", on(0x12, [](auto& c) { c.read({}); }), BluetoothLE::kNoRead},
        {"write without the write bit", on(5, [](auto& c) { c.write({1}, {}); }), BluetoothLE::kNoWrite},
        {"write command without its bit", on(3, [](auto& c) { c.writeWithoutResponse(value.data(), 1); }),
         BluetoothLE::kNoWriteWithoutResponse},
        {"read at value handle 0", atHandleZero([](auto& c) { c.read({}); }), BluetoothLE::kInvalidValueHandle},
        {"write command at value handle 0", atHandleZero([](auto& c) { c.writeWithoutResponse(value.data(), 1); }),
         BluetoothLE::kInvalidValueHandle},
        {"connect while a link is up", [](BluetoothLE& ble) { ble.connect(kAddress, false); },
         BluetoothLE::kInvalidState},
    };
    Action const needingTheLink[] = {
        [](BluetoothLE& ble) { ble.exchangeMtu(247, {}); },
        [](BluetoothLE& ble) { ble.getRssi(); },
        on(0x15, [](auto& c) { c.writeWithoutResponse(value.data(), 1); }),
    };
    for (auto const& c : cases) EXPECT_EQ(thrownBy([&] { c.act(link.ble); }), c.message) << c.name;
    // What the link carries next is the first thing sent after discovery.
    characteristicOf(link.ble, 0x15).writeWithoutResponse(value.data(), 20);
    EXPECT_TRUE(peer->play({fromClient("52 15 00 " + hex(value.data(), 20))}));
    peer->close();
    ASSERT_EQ(link.ends.wait(1), std::vector<Reason>{Reason::LinkLost});
    for (Action const& operation : needingTheLink)
        EXPECT_EQ(thrownBy([&] { operation(link.ble); }), BluetoothLE::kInvalidState);
    EXPECT_EQ(thrownBy([] { Characteristic{}.read({}); }), BluetoothLE::kInvalidState);
}

// Reads continued with Read Blob while another thread queues MTU exchanges
// each time an answer that fills the MTU is on its way, until the client
// sends its next request: the device answers every request as it comes, so an
// exchange sent while a continuation was due would be answered in the
// continuation's place and end the link. Only the request at the front of the
// queue is ever outstanding.
TEST_F(DiscoveredLink, OnlyOneRequestIsOutstandingWhateverThreadQueues) {
    std::atomic<bool> reading{true};
    std::atomic<bool> answerOnItsWay{false};
    // The client hangs up at the end with exchanges still unanswered.
    std::thread device([&] {
        for (std::vector<uint8_t> pdu = peer->receive(); !pdu.empty(); pdu = peer->receive()) {
            answerOnItsWay = false;
            if (pdu[0] == 0x02) {
                peer->trySend("03 17 00");
            } else if (pdu[0] == 0x0a || (pdu[0] == 0x0c && pdu[3] < 4 * 22)) {
                // The first answer and three more fill the MTU, then an empty one.
                answerOnItsWay = true;
                peer->trySend((pdu[0] == 0x0a ? "0b " : "0d ") + byteRun(pdu[0] == 0x0a ? 0 : pdu[3], 22));
            } else {
                peer->trySend("0d");
            }
        }
    });
    std::thread otherThread([&] {
        while (reading) {
            if (answerOnItsWay) thrownBy([&] { link.ble.exchangeMtu(23, {}); });
        }
    });
    // A read on a link that ended throws, and one cut off never finishes.
    auto const readWhole = [this] {
        try {
            CallbackResult<std::string> read;
            characteristicOf(link.ble, 5).read([done = read.callback()](uint8_t const* data, size_t length) mutable {
                done(hex(data, length));
            });
            return read.get(kReportPatience) == std::tuple(byteRun(0, 4 * 22));
        } catch (std::exception const&) {
            return false;
        }
    };
    for (int i = 0; i < 500 && readWhole(); ++i) {
    }
    reading = false;
    otherThread.join();
    EXPECT_TRUE(link.ends.all().empty());
    link.ble.disconnect();
    device.join();
}

// The peer stops reading: a few write commands fill the socket, the next one
// waits in vain and ends the link, once.
TEST_F(DiscoveredLink, StalledPeerEndsTheLinkWithWriteFailed) {
    std::vector<uint8_t> const value(20, 0xC3);
    auto const deadline = std::chrono::steady_clock::now() + 3 * kReportPatience;
    while (link.ends.all().empty() && std::chrono::steady_clock::now() < deadline)
        thrownBy([&] { characteristicOf(link.ble, 0x15).writeWithoutResponse(value.data(), value.size()); });
    EXPECT_EQ(link.ends.wait(1), std::vector<Reason>{Reason::WriteFailed});
    link.ble.disconnect();
    EXPECT_EQ(link.ends.all(), std::vector<Reason>{Reason::WriteFailed});
}

// The client answers the device's own MTU request with 512 and takes the
// device's capped at 512, also from a request waiting as the link comes up:
// that one comes with the connection's edge, which is not reported again. The
// second link comes from the disconnected callback itself and starts afresh:
// the default MTU and an empty queue.
TEST(BluetoothLELink, AnswersTheDevicesMtuAndReconnectsFromItsOwnDisconnectedCallback) {
    ScriptedLink link;
    link.greeting = "02 64 00";
    link.ble.setDisconnectedCallback([&link](Reason reason) {
        link.ends.add(reason);
        if (reason == Reason::LinkLost) link.ble.connect(kAddress, true);
    });
    auto const first = link.connect();
    ASSERT_TRUE(first->play({fromClient("03 00 02")}));
    EXPECT_EQ(link.ble.mtu(), 100);
    ASSERT_TRUE(first->play({toClient("02 58 02"), fromClient("03 00 02")}));
    EXPECT_EQ(link.ble.mtu(), 512);
    link.ble.exchangeMtu(247, {});
    ASSERT_TRUE(first->play({kMtuRequest}));
    first->close();

    std::vector<Connection> const connections = link.peers.wait(2);
    ASSERT_EQ(connections.size(), 2u);
    EXPECT_TRUE(connections[1].publicAddress);
    ASSERT_TRUE(eventually([&] { return link.ble.state() == BluetoothLE::State::Connected; }));
    EXPECT_EQ(link.ble.mtu(), BluetoothLE::kDefaultMtu);
    // Were the unanswered request still queued, this one would wait behind it.
    CallbackResult<> again;
    link.ble.exchangeMtu(48, again.callback());
    ASSERT_TRUE(connections[1].peer->play({fromClient("02 30 00"), toClient("03 30 00")}));
    again.get(kReportPatience);
    EXPECT_EQ(link.ble.mtu(), 48);
    link.ble.disconnect();
    EXPECT_EQ(link.ends.all(), (std::vector<Reason>{Reason::LinkLost, Reason::ClosedLocally}));
}

TEST(BluetoothLELink, ConnectsToTheAddressOfTheText) {
    std::pair<char const*, uint64_t> const cases[] = {
        {"C2:5A:4C:00:00:01", 0xC25A4C000001},    {"c2-5a-4c-00-00-01", 0xC25A4C000001},
        {"C2:5A:4C:00:00:01:77", 0xC25A4C000001}, {"C2:5A:4G:00:00:01", 0xC25A},
        {"C2:5A:4C0:00:00:01", 0xC25A},           {"C2:5A:4C:00:00:1", 0xC25A4C0000},
    };
    bool publicAddress = false;
    for (auto const& [text, address] : cases) {
        SCOPED_TRACE(text);
        publicAddress = !publicAddress;
        ScriptedLink link;
        link.ble.connect(text, publicAddress);
        std::vector<Connection> const connections = link.peers.wait(1);
        ASSERT_EQ(connections.size(), 1u);
        EXPECT_EQ(connections[0].address, address);
        EXPECT_EQ(connections[0].publicAddress, publicAddress);
    }
}

}  // namespace
