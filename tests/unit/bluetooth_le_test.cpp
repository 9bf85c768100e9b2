// The GATT client's link against scripted devices on a socket pair: the MTU
// rule, notifications, protocol failures, the signal strength and how links
// begin and end. Every PDU the client sends is compared byte for byte.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "scripted_gatt_link.h"

namespace {

using namespace gatttest;

TEST(BluetoothLEMtu, TakesTheDevicesMtuCappedAt512WhateverWasAsked) {
    struct Case {
        char const* answer;
        uint16_t mtu;
    } const cases[] = {{"03 58 02", 512}, {"03 64 00", 100}, {"03 00 02", 512}, {"03 01 02", 512}, {"03 f7 00", 247}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.answer);
        ScriptedLink link;
        AttPeer peer = link.connect();
        EXPECT_EQ(link.ble.mtu(), BluetoothLE::kDefaultMtu);
        CallbackResult<> done;
        link.ble.exchangeMtu(247, done.callback());
        ASSERT_TRUE(peer.play(kMtuRequest + AttScript{toClient(c.answer)}));
        done.get(kPatience);
        EXPECT_EQ(link.ble.mtu(), c.mtu);
    }
}

TEST(BluetoothLEMtu, AnswersTheDevicesRequestWith512) {
    struct Case {
        char const* request;
        uint16_t mtu;
    } const cases[] = {{"02 58 02", 512}, {"02 64 00", 100}, {"02 00 02", 512}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.request);
        ScriptedLink link;
        AttPeer peer = link.connect();
        ASSERT_TRUE(peer.play({toClient(c.request), fromClient("03 00 02")}));
        EXPECT_EQ(link.ble.mtu(), c.mtu);
        EXPECT_EQ(link.ble.state(), State::Connected);
    }
}

// It comes with the connection's edge, which is not reported again.
TEST(BluetoothLEMtu, RequestWaitingWhenTheLinkComesUpIsAnswered) {
    ScriptedLink link;
    link.greeting = "02 64 00";
    AttPeer peer = link.connect();
    ASSERT_TRUE(peer.play({fromClient("03 00 02")}));
    EXPECT_EQ(link.ble.mtu(), 100);
}

TEST(BluetoothLEMtu, MalformedRequestFromTheDeviceEndsTheLink) {
    for (char const* request : {"02 64 00 00", "02 64", "02"}) {
        SCOPED_TRACE(request);
        ScriptedLink link;
        AttPeer peer = link.connect();
        peer.send(request);
        EXPECT_EQ(link.events.waitEnd(), Reason::ErrorResponse);
    }
}

TEST(BluetoothLENotifications, IgnoresUnknownHandlesAndDeliversKnownOnes) {
    ScriptedLink link;
    AttPeer peer = link.connect();
    link.discover(peer);
    peer.send("1b 09 00 aa");
    peer.send("1b 05 00 01 02");
    peer.send("1b 03 00");
    EXPECT_EQ(link.notifications.wait(2), (std::vector<std::string>{"5: 01 02", "3: "}));
    EXPECT_EQ(link.ble.state(), State::Connected);
}

TEST(BluetoothLENotifications, ConfirmsIndicationsBeforeDeliveringThem) {
    ScriptedLink link;
    AttPeer peer = link.connect();
    link.discover(peer);
    ASSERT_TRUE(peer.play({toClient("1d 15 00 07 08"), fromClient("1e")}));
    EXPECT_EQ(link.notifications.wait(1), (std::vector<std::string>{"21: 07 08"}));
}

TEST(BluetoothLENotifications, DeliversMultipleValuesUpToATruncatedEntry) {
    ScriptedLink link;
    AttPeer peer = link.connect();
    link.discover(peer);
    peer.send("23 05 00 02 00 aa bb 09 00 01 00 99 12 00 01 00 cc 15 00 05 00 dd");
    peer.send("1b 03 00 ee");
    EXPECT_EQ(link.notifications.wait(3), (std::vector<std::string>{"5: aa bb", "18: cc", "3: ee"}));
}

TEST(BluetoothLENotifications, DeliversWhatCameBeforeTheHangUp) {
    ScriptedLink link;
    AttPeer peer = link.connect();
    link.discover(peer);
    peer.send("1b 05 00 01");
    peer.send("1b 12 00 02");
    peer.close();
    EXPECT_EQ(link.events.waitEnd(), Reason::LinkLost);
    EXPECT_EQ(link.notifications.wait(2), (std::vector<std::string>{"5: 01", "18: 02"}));
}

// Each case runs on a discovered link; the device's side of it ends the link.
TEST(BluetoothLEProtocol, EndsTheLinkOnViolationsAndErrorResponses) {
    struct Case {
        char const* name;
        Action act;
        AttScript script;
        Reason reason;
    } const cases[] = {
        {"notification shorter than 3 bytes", {}, {toClient("1b 03")}, Reason::ProtocolViolation},
        {"indication shorter than 3 bytes", {}, {toClient("1d 15")}, Reason::ProtocolViolation},
        {"answer with nothing pending", {}, {toClient("0b 01 02")}, Reason::ProtocolViolation},
        {"answer of the wrong opcode", exchangeMtu247, kMtuRequest + AttScript{toClient("0b 00")},
         Reason::ProtocolViolation},
        {"error response for another request", exchangeMtu247, kMtuRequest + AttScript{toClient("01 0a 03 00 0a")},
         Reason::ProtocolViolation},
        {"error response cut short", exchangeMtu247, kMtuRequest + AttScript{toClient("01 02 00")},
         Reason::ProtocolViolation},
        {"error response to the MTU exchange", exchangeMtu247, kMtuRequest + AttScript{toClient("01 02 00 00 06")},
         Reason::ErrorResponse},
        {"error response to a read",
         [](BluetoothLE& ble) { characteristicOf(ble, 3).read({}); },
         {fromClient("0a 03 00"), toClient("01 0a 03 00 02")},
         Reason::ErrorResponse},
        {"error response to a write",
         [](BluetoothLE& ble) { characteristicOf(ble, 0x15).write({1}, {}); },
         {fromClient("12 15 00 01"), toClient("01 12 15 00 03")},
         Reason::ErrorResponse},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLink link;
        AttPeer peer = link.connect();
        link.discover(peer);
        if (c.act) c.act(link.ble);
        ASSERT_TRUE(peer.play(c.script));
        EXPECT_EQ(link.events.waitEnd(), c.reason);
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
    ASSERT_TRUE(link.events.waitConnections(1));
    link.host.setRssi(-42);
    EXPECT_EQ(link.ble.getRssi(), -42);
    link.host.setRssi(-42, false);
    EXPECT_EQ(thrownBy([&] { link.ble.getRssi(); }), BluetoothLE::kRssiError);
}

// The peer stops reading: a few write commands fill the socket, the next one
// waits in vain and ends the link.
TEST(BluetoothLELink, StalledPeerEndsTheLinkWithWriteFailed) {
    ScriptedLink link;
    AttPeer peer = link.connect();
    link.discover(peer);
    Characteristic& characteristic = characteristicOf(link.ble, 0x15);
    std::vector<uint8_t> const value(20, 0xC3);
    auto const deadline = std::chrono::steady_clock::now() + 3 * kPatience;
    while (link.events.reasons().empty() && std::chrono::steady_clock::now() < deadline) {
        try {
            characteristic.writeWithoutResponse(value.data(), value.size());
        } catch (BluetoothLE::Exception const& e) {
            EXPECT_EQ(std::string(e.what()), BluetoothLE::kInvalidState);
            break;
        }
    }
    EXPECT_EQ(link.events.waitEnd(), Reason::WriteFailed);
    EXPECT_EQ(link.events.reasons().size(), 1u);
}

TEST(BluetoothLELink, ReportsHowEachLinkEndedExactlyOnce) {
    struct Case {
        char const* name;
        std::function<void(ScriptedLink&, AttPeer&)> end;
        Reason reason;
    } const cases[] = {
        {"peer closes", [](ScriptedLink&, AttPeer& peer) { peer.close(); }, Reason::LinkLost},
        {"disconnect()", [](ScriptedLink& link, AttPeer&) { link.ble.disconnect(); }, Reason::ClosedLocally},
        {"peer closes after discovery",
         [](ScriptedLink& link, AttPeer& peer) {
             link.discover(peer);
             peer.close();
         },
         Reason::LinkLost},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLink link;
        AttPeer peer = link.connect();
        c.end(link, peer);
        EXPECT_EQ(link.events.waitEnd(), c.reason);
        EXPECT_EQ(link.ble.state(), State::Disconnected);
        // Waits for the connection thread, so no second report can follow.
        link.ble.disconnect();
        EXPECT_EQ(link.events.reasons(), std::vector<Reason>{c.reason});
        EXPECT_EQ(link.events.connections(), 1u);
    }
}

TEST(BluetoothLELink, PeerClosingWhileConnectingIsAFailedAttempt) {
    ScriptedLink link;
    link.refuseNext = true;
    link.ble.connect(kAddress, false);
    EXPECT_EQ(link.events.waitEnd(), Reason::NeverConnected);
    link.ble.disconnect();
    EXPECT_EQ(link.events.reasons(), std::vector<Reason>{Reason::NeverConnected});
    EXPECT_EQ(link.events.connections(), 0u);
}

TEST(BluetoothLELink, ReconnectsWithTheDefaultMtuAndAnEmptyQueue) {
    ScriptedLink link;
    AttPeer first = link.connect();
    CallbackResult<> exchanged;
    link.ble.exchangeMtu(100, exchanged.callback());
    ASSERT_TRUE(first.play({fromClient("02 64 00"), toClient("03 64 00")}));
    exchanged.get(kPatience);
    EXPECT_EQ(link.ble.mtu(), 100);
    link.ble.exchangeMtu(247, {});
    ASSERT_TRUE(first.play(kMtuRequest));
    first.close();
    ASSERT_EQ(link.events.waitEnd(1), Reason::LinkLost);

    AttPeer second = link.connect();
    EXPECT_EQ(link.ble.mtu(), BluetoothLE::kDefaultMtu);
    // Were the unanswered request still queued, this one would wait behind it.
    CallbackResult<> again;
    link.ble.exchangeMtu(48, again.callback());
    ASSERT_TRUE(second.play({fromClient("02 30 00"), toClient("03 30 00")}));
    again.get(kPatience);
    EXPECT_EQ(link.ble.mtu(), 48);
    link.ble.disconnect();
    EXPECT_EQ(link.events.reasons(), (std::vector<Reason>{Reason::LinkLost, Reason::ClosedLocally}));
    EXPECT_EQ(link.events.connections(), 2u);
}

TEST(BluetoothLELink, ReconnectsFromItsOwnDisconnectedCallback) {
    ScriptedLink link;
    link.ble.setDisconnectedCallback([&link](Reason reason) {
        link.events.disconnected(reason);
        if (reason == Reason::LinkLost) link.ble.connect(kAddress, true);
    });
    AttPeer first = link.connect();
    first.close();
    std::optional<AttPeers::Connection> second = link.peers.next();
    ASSERT_TRUE(second);
    EXPECT_TRUE(second->publicAddress);
    ASSERT_TRUE(link.events.waitConnections(2));
    link.ble.disconnect();
    EXPECT_EQ(link.events.reasons(), (std::vector<Reason>{Reason::LinkLost, Reason::ClosedLocally}));
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
        std::optional<AttPeers::Connection> connection = link.peers.next();
        ASSERT_TRUE(connection);
        EXPECT_EQ(connection->address, c.address);
        EXPECT_EQ(connection->publicAddress, publicAddress);
    }
}

TEST(BluetoothLELink, ConnectWhileALinkIsUpIsMisuse) {
    ScriptedLink link;
    AttPeer peer = link.connect();
    EXPECT_EQ(thrownBy([&] { link.ble.connect(kAddress, false); }), BluetoothLE::kInvalidState);
    EXPECT_EQ(link.ble.state(), State::Connected);
}

}  // namespace
