// The GATT client's link against scripted devices on a socket pair: the MTU
// rule, notifications, protocol failures, the signal strength and how links
// begin and end. Every PDU the client sends is compared byte for byte.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "scripted_gatt_link.h"

namespace {

using namespace gatttest;

// The client takes the device's MTU capped at 512, whatever it asked, and
// answers the device's own request with 512, also one waiting as the link
// comes up: that comes with the connection's edge, which is not reported again.
TEST(BluetoothLEMtu, TakesTheDevicesMtuCappedAt512) {
    enum Asking { Client, Device, DeviceFirst };
    struct Case {
        Asking asking;
        char const* pdu;
        uint16_t mtu;
    } const cases[] = {
        {Client, "03 58 02", 512}, {Client, "03 64 00", 100}, {Client, "03 00 02", 512},
        {Client, "03 01 02", 512}, {Client, "03 f7 00", 247}, {Device, "02 58 02", 512},
        {Device, "02 64 00", 100}, {Device, "02 00 02", 512}, {DeviceFirst, "02 64 00", 100},
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
            done.get(kPatience);
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

TEST(BluetoothLEProtocol, EndsTheLinkOnViolationsAndErrorResponses) {
    enum Start { Discovered, Fresh, Discovering };  // Discovering: after the first services request
    Action const read = [](BluetoothLE& ble) { characteristicOf(ble, 3).read({}); };
    Action const write = [](BluetoothLE& ble) { characteristicOf(ble, 0x15).write({1}, {}); };
    AttScript const oneService = {toClient("11 06 01 00 ff ff 0f 18"), fromClient("08 01 00 ff ff 03 28")};
    struct Case {
        char const* name;
        Start start;
        Action act;
        AttScript script;
        Reason reason;
    } const cases[] = {
        {"notification shorter than 3 bytes", Discovered, nullptr, AttScript{toClient("1b 03")},
         Reason::ProtocolViolation},
        {"indication shorter than 3 bytes", Discovered, nullptr, AttScript{toClient("1d 15")},
         Reason::ProtocolViolation},
        {"answer with nothing pending", Discovered, nullptr, AttScript{toClient("0b 01 02")},
         Reason::ProtocolViolation},
        {"answer of the wrong opcode", Discovered, exchangeMtu247, kMtuRequest + AttScript{toClient("0b 00")},
         Reason::ProtocolViolation},
        {"error response for another request", Discovered, exchangeMtu247,
         kMtuRequest + AttScript{toClient("01 0a 03 00 0a")}, Reason::ProtocolViolation},
        {"error response cut short", Discovered, exchangeMtu247, kMtuRequest + AttScript{toClient("01 02 00")},
         Reason::ProtocolViolation},
        {"error response to the MTU exchange", Discovered, exchangeMtu247,
         kMtuRequest + AttScript{toClient("01 02 00 00 06")}, Reason::ErrorResponse},
        {"error response to a read", Discovered, read, AttScript{fromClient("0a 03 00"), toClient("01 0a 03 00 02")},
         Reason::ErrorResponse},
        {"error response to a write", Discovered, write,
         AttScript{fromClient("12 15 00 01"), toClient("01 12 15 00 03")}, Reason::ErrorResponse},
        {"MTU request too long", Fresh, nullptr, AttScript{toClient("02 64 00 00")}, Reason::ErrorResponse},
        {"MTU request too short", Fresh, nullptr, AttScript{toClient("02 64")}, Reason::ErrorResponse},
        {"MTU request without its MTU", Fresh, nullptr, AttScript{toClient("02")}, Reason::ErrorResponse},
        {"group page not a whole number of entries", Discovering, nullptr,
         AttScript{toClient("11 06 01 00 07 00 0f 18 01")}, Reason::ProtocolViolation},
        {"group entries of 7 bytes", Discovering, nullptr, AttScript{toClient("11 07 01 00 07 00 0f 18 00")},
         Reason::ProtocolViolation},
        {"group page without entries", Discovering, nullptr, AttScript{toClient("11 06")}, Reason::ProtocolViolation},
        {"declarations of 6 bytes", Discovering, nullptr, oneService + AttScript{toClient("09 06 02 00 12 03 00 19")},
         Reason::ProtocolViolation},
        {"declaration page not a whole number of entries", Discovering, nullptr,
         oneService + AttScript{toClient("09 07 02 00 12 03 00 19 2a 05")}, Reason::ProtocolViolation},
        {"descriptors of 5 bytes", Discovering, nullptr,
         oneService + AttScript{toClient("01 08 01 00 0a"), fromClient("08 01 00 ff ff 02 29"),
                                toClient("09 05 04 00 00 00 00")},
         Reason::ProtocolViolation},
        {"discovery error other than Attribute Not Found", Discovering, nullptr, AttScript{toClient("01 10 01 00 02")},
         Reason::ErrorResponse},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLink link;
        auto const peer = link.connect();
        if (c.start == Discovered) link.discover(*peer);
        if (c.act) c.act(link.ble);
        if (c.start == Discovering) {
            link.ble.discoverServices({});
            ASSERT_TRUE(peer->play({fromClient("10 01 00 ff ff 00 28")}));
        }
        ASSERT_TRUE(peer->play(c.script));
        EXPECT_EQ(link.ends.nth(1), c.reason);
    }
}

TEST(BluetoothLERssi, ComesFromTheAdapterOnlyWhileConnected) {
    ScriptedLink link;
    ASSERT_TRUE(link.ble.openAdapter());
    EXPECT_EQ(thrownBy([&] { link.ble.getRssi(); }), BluetoothLE::kInvalidState);
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
    Characteristic& characteristic = characteristicOf(link.ble, 0x15);
    std::vector<uint8_t> const value(20, 0xC3);
    auto const deadline = std::chrono::steady_clock::now() + 3 * kPatience;
    while (link.ends.all().empty() && std::chrono::steady_clock::now() < deadline) {
        try {
            characteristic.writeWithoutResponse(value.data(), value.size());
        } catch (BluetoothLE::Exception const& e) {
            EXPECT_EQ(std::string(e.what()), BluetoothLE::kInvalidState);
            break;
        }
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
    exchanged.get(kPatience);
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
    again.get(kPatience);
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
