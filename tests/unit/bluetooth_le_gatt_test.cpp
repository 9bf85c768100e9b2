// The GATT client against scripted devices on a socket pair, every PDU it
// sends compared byte for byte: discovery, reads, writes and configuration
// descriptors, the MTU rule, notifications, the protocol violations that end
// the link and their reasons, misuse, and how links begin and end.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "scripted_gatt_link.h"

namespace {

using namespace gatttest;

/// An operation that hands what it finished with, as text, to its second argument.
using Operation = std::function<void(BluetoothLE&, std::function<void(std::string)>)>;

Operation discover() {
    return [](BluetoothLE& ble, auto finished) {
        ble.discoverServices([&ble, finished] {
            // Handles and properties in hexadecimal.
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
    };
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
        characteristicOf(ble, handle).write(fromHex(value), [finished] { finished("written"); });
    };
}

Operation configure(uint16_t handle, bool notify, bool indicate) {
    return [=](BluetoothLE& ble, auto finished) {
        characteristicOf(ble, handle).setNotify(notify, indicate, [finished] { finished("configured"); });
    };
}

// At the default MTU of 23: reads answered with 22 bytes continue, writes of
// more than 20 bytes go out in Prepare Write pieces of 18.
TEST(BluetoothLEExchanges, OperationsSendTheirPdusByteForByte) {
    auto const echo = [](std::string const& request) { return toClient("17" + request.substr(2)); };
    std::string const piece1 = "16 15 00 00 00 " + byteRun(1, 18);
    std::string const piece2 = "16 15 00 12 00 " + byteRun(19, 18);
    std::string const piece3 = "16 15 00 24 00 " + byteRun(37, 4);
    std::string const uuid = "-2c7b-1539-172f-29d041beab3e";
    struct Case {
        char const* name;
        Operation act;
        AttScript script;
        std::string result;
    } const cases[] = {
        {"discovery pages through each step and joins the lists", discover(), kDiscovery,
         "1-7 180f: 2 a 3 2a1a ccc 0; 4 12 5 2a19 ccc 6;10-18 ec7c0000" + uuid + ": 11 20 12 ec7c0001" + uuid +
             " ccc 13; 14 3e 15 ec7c0002" + uuid + " ccc 16;"},
        {"discovery step ending at the last handle without another page",
         discover(),
         {kServicesRequest, toClient("11 06 01 00 ff ff 0f 18"), kDeclarationsRequest, toClient("01 08 01 00 0a"),
          kDescriptorsRequest, toClient("01 08 01 00 0a")},
         "1-ffff 180f:"},
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
        {"write that fits the MTU",
         write(0x15, byteRun(1, 20)),
         {fromClient("12 15 00 " + byteRun(1, 20)), toClient("13")},
         "written"},
        {"long write",
         write(0x15, byteRun(1, 40)),
         {fromClient(piece1), echo(piece1), fromClient(piece2), echo(piece2), fromClient(piece3), echo(piece3),
          fromClient("18 01"), toClient("19")},
         "written"},
        {"notifications on", configure(5, true, false), {fromClient("12 06 00 01 00"), toClient("13")}, "configured"},
        {"notifications off", configure(5, false, false), {fromClient("12 06 00 00 00"), toClient("13")}, "configured"},
        {"indications on", configure(0x15, false, true), {fromClient("12 16 00 02 00"), toClient("13")}, "configured"},
        {"both on", configure(0x15, true, true), {fromClient("12 16 00 03 00"), toClient("13")}, "configured"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLink link;
        auto const peer = link.connect();
        // Rows that discover script it themselves; the others work on kDiscovery's database.
        if (c.script.front().bytes != kServicesRequest.bytes) link.discover(*peer);
        CallbackResult<std::string> finished;
        c.act(link.ble, finished.callback());
        ASSERT_TRUE(peer->play(c.script));
        EXPECT_EQ(std::get<0>(finished.get(kReportPatience)), c.result);
        EXPECT_EQ(link.ble.state(), State::Connected);
    }
}

// The client takes the device's MTU capped at 512, whatever it asked, and
// answers the device's own request with 512, also one waiting as the link
// comes up: that comes with the connection's edge, which is not reported again.
TEST(BluetoothLEExchanges, MtuIsTheDevicesCappedAt512) {
    enum Asking { Client, Device, DeviceFirst };
    struct Case {
        Asking asking;
        char const* pdu;
        uint16_t mtu;
    } const cases[] = {
        {Client, "03 58 02", 512}, {Client, "03 64 00", 100}, {Client, "03 00 02", 512}, {Client, "03 01 02", 512},
        {Device, "02 58 02", 512}, {Device, "02 64 00", 100}, {Device, "02 00 02", 512}, {DeviceFirst, "02 64 00", 100},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.asking << ": " << c.pdu);
        ScriptedLink link;
        if (c.asking == DeviceFirst) link.greeting = c.pdu;
        auto const peer = link.connect();
        if (c.asking == Client) {
            EXPECT_EQ(link.ble.mtu(), BluetoothLE::kDefaultMtu);
            CallbackResult<> done;
            link.ble.exchangeMtu(247, done.callback());
            ASSERT_TRUE(peer->play(kMtuRequest + AttScript{toClient(c.pdu)}));
            done.get(kReportPatience);
        } else {
            if (c.asking == Device) peer->send(c.pdu);
            ASSERT_TRUE(peer->play({fromClient("03 00 02")}));
        }
        EXPECT_EQ(link.ble.mtu(), c.mtu);
        EXPECT_EQ(link.ble.state(), State::Connected);
    }
}

// Unknown handles are ignored, indications confirmed before delivery, a
// multiple-value notification delivered up to a truncated entry, and all that
// came before the hang-up delivered.
TEST(BluetoothLENotifications, DeliversWhatTheDeviceSends) {
    ScriptedLink link;
    auto const peer = link.connect();
    link.discover(*peer);
    peer->send("1b 09 00 aa");
    peer->send("1b 05 00 01 02");
    peer->send("1b 03 00");
    ASSERT_TRUE(peer->play({toClient("1d 15 00 07 08"), fromClient("1e")}));
    peer->send("23 05 00 02 00 aa bb 09 00 01 00 99 12 00 01 00 cc 15 00 05 00 dd");
    link.notifications.wait(5);
    EXPECT_EQ(link.ble.state(), State::Connected);
    peer->send("1b 12 00 02");
    peer->close();
    EXPECT_EQ(link.ends.nth(1), Reason::LinkLost);
    EXPECT_EQ(link.notifications.wait(6),
              (std::vector<std::string>{"5: 01 02", "3: ", "21: 07 08", "5: aa bb", "18: cc", "18: 02"}));
}

TEST(BluetoothLEProtocol, ViolationsAndErrorResponsesEndTheLink) {
    enum Start { Discovered, Fresh, Discovering };  // Discovering: after the first services request
    Action const read = [](BluetoothLE& ble) { characteristicOf(ble, 3).read({}); };
    Action const write = [](BluetoothLE& ble) { characteristicOf(ble, 0x15).write({1}, {}); };
    AttScript const oneService = {toClient("11 06 01 00 ff ff 0f 18"), kDeclarationsRequest};
    Reason const violation = Reason::ProtocolViolation;
    Reason const error = Reason::ErrorResponse;
    struct Case {
        char const* name;
        Start start;
        Action act;
        AttScript script;
        Reason reason;
    } const cases[] = {
        {"notification shorter than 3 bytes", Discovered, nullptr, {toClient("1b 03")}, violation},
        {"indication shorter than 3 bytes", Discovered, nullptr, {toClient("1d 15")}, violation},
        {"answer with nothing pending", Discovered, nullptr, {toClient("0b 01 02")}, violation},
        {"answer of the wrong opcode", Discovered, exchangeMtu247, kMtuRequest + AttScript{toClient("0b 00")},
         violation},
        {"error response for another request", Discovered, exchangeMtu247,
         kMtuRequest + AttScript{toClient("01 0a 03 00 0a")}, violation},
        {"error response cut short", Discovered, exchangeMtu247, kMtuRequest + AttScript{toClient("01 02 00")},
         violation},
        {"error response to the MTU exchange", Discovered, exchangeMtu247,
         kMtuRequest + AttScript{toClient("01 02 00 00 06")}, error},
        {"error response to a read", Discovered, read, {fromClient("0a 03 00"), toClient("01 0a 03 00 02")}, error},
        {"error response to a write",
         Discovered,
         write,
         {fromClient("12 15 00 01"), toClient("01 12 15 00 03")},
         error},
        {"MTU request too long", Fresh, nullptr, {toClient("02 64 00 00")}, error},
        {"MTU request too short", Fresh, nullptr, {toClient("02 64")}, error},
        {"MTU request without its MTU", Fresh, nullptr, {toClient("02")}, error},
        {"group page not a whole number of entries",
         Discovering,
         nullptr,
         {toClient("11 06 01 00 07 00 0f 18 01")},
         violation},
        {"group entries of 7 bytes", Discovering, nullptr, {toClient("11 07 01 00 07 00 0f 18 00")}, violation},
        {"group page without entries", Discovering, nullptr, {toClient("11 06")}, violation},
        {"declarations of 6 bytes", Discovering, nullptr, oneService + AttScript{toClient("09 06 02 00 12 03 00 19")},
         violation},
        {"declaration page not a whole number of entries", Discovering, nullptr,
         oneService + AttScript{toClient("09 07 02 00 12 03 00 19 2a 05")}, violation},
        {"descriptors of 5 bytes", Discovering, nullptr,
         oneService + AttScript{toClient("01 08 01 00 0a"), kDescriptorsRequest, toClient("09 05 04 00 00 00 00")},
         violation},
        {"discovery error other than Attribute Not Found", Discovering, nullptr, {toClient("01 10 01 00 02")}, error},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLink link;
        auto const peer = link.connect();
        if (c.start == Discovered) link.discover(*peer);
        if (c.act) c.act(link.ble);
        if (c.start == Discovering) {
            link.ble.discoverServices({});
            ASSERT_TRUE(peer->play({kServicesRequest}));
        }
        ASSERT_TRUE(peer->play(c.script));
        EXPECT_EQ(link.ends.nth(1), c.reason);
    }
}

/// A copy of the characteristic at 0x15 with no value handle.
Characteristic atHandleZero(BluetoothLE& ble) {
    Characteristic zero = characteristicOf(ble, 0x15);
    zero.valueHandle = 0;
    return zero;
}

TEST(BluetoothLEMisuse, ThrowsWithoutSendingAnything) {
    static std::vector<uint8_t> const value(21, 0x5A);
    struct Case {
        char const* name;
        Action act;
        char const* message;
    } const cases[] = {
        {"write command longer than MTU - 3",
         [](BluetoothLE& ble) { characteristicOf(ble, 0x15).writeWithoutResponse(value.data(), 21); },
         BluetoothLE::kLengthOverMtu},
        {"notify without the notify bit",
         [](BluetoothLE& ble) { characteristicOf(ble, 0x12).setNotify(true, false, {}); }, BluetoothLE::kNoNotify},
        {"indicate without the indicate bit",
         [](BluetoothLE& ble) { characteristicOf(ble, 5).setNotify(false, true, {}); }, BluetoothLE::kNoIndicate},
        {"notify without a CCCD", [](BluetoothLE& ble) { characteristicOf(ble, 3).setNotify(true, false, {}); },
         BluetoothLE::kInvalidCccHandle},
        {"read without the read bit", [](BluetoothLE& ble) { characteristicOf(ble, 0x12).read({}); },
         BluetoothLE::kNoRead},
        {"write without the write bit", [](BluetoothLE& ble) { characteristicOf(ble, 5).write({1}, {}); },
         BluetoothLE::kNoWrite},
        {"write command without its bit",
         [](BluetoothLE& ble) { characteristicOf(ble, 3).writeWithoutResponse(value.data(), 1); },
         BluetoothLE::kNoWriteWithoutResponse},
        {"read at value handle 0", [](BluetoothLE& ble) { atHandleZero(ble).read({}); },
         BluetoothLE::kInvalidValueHandle},
        {"write command at value handle 0",
         [](BluetoothLE& ble) { atHandleZero(ble).writeWithoutResponse(value.data(), 1); },
         BluetoothLE::kInvalidValueHandle},
        {"connect while a link is up", [](BluetoothLE& ble) { ble.connect(kAddress, false); },
         BluetoothLE::kInvalidState},
    };
    ScriptedLink link;
    auto const peer = link.connect();
    link.discover(*peer);
    for (auto const& c : cases) EXPECT_EQ(thrownBy([&] { c.act(link.ble); }), c.message) << c.name;
    // What the link carries next is the first thing sent after discovery.
    characteristicOf(link.ble, 0x15).writeWithoutResponse(value.data(), 20);
    EXPECT_TRUE(peer->play({fromClient("52 15 00 " + hex(value.data(), 20))}));
    EXPECT_EQ(link.ble.state(), State::Connected);
}

TEST(BluetoothLEMisuse, EveryOperationNeedsTheLink) {
    static uint8_t const byte = 1;
    Action const operations[] = {
        exchangeMtu247,
        [](BluetoothLE& ble) { ble.discoverServices({}); },
        [](BluetoothLE& ble) { ble.getRssi(); },
        [](BluetoothLE& ble) { characteristicOf(ble, 0x15).read({}); },
        [](BluetoothLE& ble) { characteristicOf(ble, 0x15).write({1}, {}); },
        [](BluetoothLE& ble) { characteristicOf(ble, 0x15).writeWithoutResponse(&byte, 1); },
        [](BluetoothLE& ble) { characteristicOf(ble, 0x15).setNotify(true, false, {}); },
    };
    ScriptedLink link;
    // Before the first link there are no characteristics to try.
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(thrownBy([&] { operations[i](link.ble); }), BluetoothLE::kInvalidState);
    auto const peer = link.connect();
    link.discover(*peer);
    peer->close();
    ASSERT_EQ(link.ends.nth(1), Reason::LinkLost);
    for (size_t i = 0; i < std::size(operations); ++i)
        EXPECT_EQ(thrownBy([&] { operations[i](link.ble); }), BluetoothLE::kInvalidState) << i;
    EXPECT_EQ(thrownBy([] { Characteristic{}.read({}); }), BluetoothLE::kInvalidState);
}

TEST(BluetoothLELink, RssiComesFromTheAdapterOnlyWhileConnected) {
    ScriptedLink link;
    ASSERT_TRUE(link.ble.openAdapter());
    link.host.holdConnections(true);
    link.ble.connect(kAddress, false);
    ASSERT_TRUE(eventually([&] { return link.host.connectionHeld(); }));
    EXPECT_EQ(link.ble.state(), State::Connecting);
    EXPECT_EQ(thrownBy([&] { link.ble.getRssi(); }), BluetoothLE::kInvalidState);
    link.host.holdConnections(false);
    ASSERT_TRUE(link.connections.nth(1));
    link.host.setRssi(-42);
    EXPECT_EQ(link.ble.getRssi(), -42);
    link.host.setRssi(-42, false);
    EXPECT_EQ(thrownBy([&] { link.ble.getRssi(); }), BluetoothLE::kRssiError);
}

// The peer stops reading: a few write commands fill the socket, the next one
// waits in vain and ends the link.
TEST(BluetoothLELink, StalledPeerEndsTheLinkWithWriteFailed) {
    ScriptedLink link;
    auto const peer = link.connect();
    link.discover(*peer);
    std::vector<uint8_t> const value(20, 0xC3);
    auto const deadline = std::chrono::steady_clock::now() + 3 * kReportPatience;
    while (link.ends.all().empty() && std::chrono::steady_clock::now() < deadline) {
        std::string const thrown =
            thrownBy([&] { characteristicOf(link.ble, 0x15).writeWithoutResponse(value.data(), value.size()); });
        if (thrown == "nothing thrown") continue;
        EXPECT_EQ(thrown, BluetoothLE::kInvalidState);
        break;
    }
    EXPECT_EQ(link.ends.nth(1), Reason::WriteFailed);
    EXPECT_EQ(link.ends.all().size(), 1u);
}

TEST(BluetoothLELink, ReportsHowEachLinkEndedExactlyOnce) {
    struct Case {
        char const* name;
        std::function<void(ScriptedLink&)> end;
        Reason reason;
        size_t connections;
    } const cases[] = {
        {"peer closes", [](ScriptedLink& link) { link.connect()->close(); }, Reason::LinkLost, 1},
        {"disconnect()",
         [](ScriptedLink& link) {
             link.connect();
             link.ble.disconnect();
         },
         Reason::ClosedLocally, 1},
        {"peer closes after discovery",
         [](ScriptedLink& link) {
             auto const peer = link.connect();
             link.discover(*peer);
             peer->close();
         },
         Reason::LinkLost, 1},
        {"peer closes while connecting",
         [](ScriptedLink& link) {
             link.refuseNext = true;
             link.ble.connect(kAddress, false);
         },
         Reason::NeverConnected, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLink link;
        c.end(link);
        EXPECT_EQ(link.ends.nth(1), c.reason);
        EXPECT_EQ(link.ble.state(), State::Disconnected);
        // Waits for the connection thread, so no second report can follow.
        link.ble.disconnect();
        EXPECT_EQ(link.ends.all(), std::vector<Reason>{c.reason});
        EXPECT_EQ(link.connections.all().size(), c.connections);
    }
}

// The second link comes from the disconnected callback itself and starts
// afresh: the default MTU and an empty queue.
TEST(BluetoothLELink, ReconnectsFromItsOwnDisconnectedCallback) {
    ScriptedLink link;
    link.ble.setDisconnectedCallback([&link](Reason reason) {
        link.ends.add(reason);
        if (reason == Reason::LinkLost) link.ble.connect(kAddress, true);
    });
    auto const first = link.connect();
    CallbackResult<> exchanged;
    link.ble.exchangeMtu(100, exchanged.callback());
    ASSERT_TRUE(first->play({fromClient("02 64 00"), toClient("03 64 00")}));
    exchanged.get(kReportPatience);
    EXPECT_EQ(link.ble.mtu(), 100);
    link.ble.exchangeMtu(247, {});
    ASSERT_TRUE(first->play(kMtuRequest));
    first->close();

    std::optional<Connection> const second = link.peers.nth(2);
    ASSERT_TRUE(second);
    EXPECT_TRUE(second->publicAddress);
    ASSERT_TRUE(link.connections.nth(2));
    EXPECT_EQ(link.ble.mtu(), BluetoothLE::kDefaultMtu);
    // Were the unanswered request still queued, this one would wait behind it.
    CallbackResult<> again;
    link.ble.exchangeMtu(48, again.callback());
    ASSERT_TRUE(second->peer->play({fromClient("02 30 00"), toClient("03 30 00")}));
    again.get(kReportPatience);
    EXPECT_EQ(link.ble.mtu(), 48);
    link.ble.disconnect();
    EXPECT_EQ(link.ends.all(), (std::vector<Reason>{Reason::LinkLost, Reason::ClosedLocally}));
    EXPECT_EQ(link.connections.all().size(), 2u);
}

TEST(BluetoothLELink, ConnectsToTheAddressOfTheText) {
    struct Case {
        char const* text;
        uint64_t address;
    } const cases[] = {
        {"C2:5A:4C:00:00:01", 0xC25A4C000001},
        {"c2-5a-4c-00-00-01", 0xC25A4C000001},
        {"C2:5A:4C:00:00:01:77", 0xC25A4C000001},
        {"C2:5A:4G:00:00:01", 0xC25A},
        {"C2:5A:4C0:00:00:01", 0xC25A},
        {"C2:5A:4C:00:00:1", 0xC25A4C0000},
        {"", 0},
    };
    bool publicAddress = false;
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        publicAddress = !publicAddress;
        ScriptedLink link;
        link.ble.connect(c.text, publicAddress);
        std::optional<Connection> const connection = link.peers.nth(1);
        ASSERT_TRUE(connection);
        EXPECT_EQ(connection->address, c.address);
        EXPECT_EQ(connection->publicAddress, publicAddress);
    }
}

}  // namespace
