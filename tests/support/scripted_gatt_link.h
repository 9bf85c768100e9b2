// A GATT client on a socket-pair host with a scripted device behind it. A
// script lists, in spaced hexadecimal, the ATT PDUs the client must send byte
// for byte and what the device answers, in order.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bluetooth_le.h"
#include "callback_result.h"
#include "reports.h"
#include "socket_pair_bluetooth_host.h"
#include "test_bytes.h"

namespace gatttest {

using Reason = BluetoothLE::DisconnectReason;
using Characteristic = BluetoothLE::Characteristic;

inline constexpr uint64_t kAddress = 0xC25A4C000001;

struct AttStep {
    bool fromClient;
    std::string bytes;
};
using AttScript = std::vector<AttStep>;

/// A PDU the client must send next.
inline AttStep fromClient(std::string bytes) { return {true, std::move(bytes)}; }
/// A PDU the device sends.
inline AttStep toClient(std::string bytes) { return {false, std::move(bytes)}; }

inline AttScript operator+(AttScript head, AttScript const& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

/// `count` bytes first, first + 1, ... in spaced hexadecimal, for long values.
inline std::string byteRun(uint8_t first, size_t count) {
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(first + i);
    return hex(bytes);
}

/// The device's end of one connection. Owns the descriptor.
class AttPeer {
public:
    explicit AttPeer(int socket) : socket_(socket) {}
    AttPeer(AttPeer const&) = delete;
    AttPeer& operator=(AttPeer const&) = delete;
    ~AttPeer() { close(); }

    void close() {
        if (socket_ >= 0) ::close(std::exchange(socket_, -1));
    }

    void send(std::string const& bytes) {
        std::vector<uint8_t> const pdu = fromHex(bytes);
        ASSERT_EQ(::send(socket_, pdu.data(), pdu.size(), MSG_NOSIGNAL), static_cast<ssize_t>(pdu.size()));
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
inline std::string deviceUuid(char const* number) {
    return std::string("3e ab be 41 d0 29 2f 17 39 15 7b 2c ") + number + " 00 7c ec";
}

inline AttStep const kServicesRequest = fromClient("10 01 00 ff ff 00 28");
inline AttStep const kDeclarationsRequest = fromClient("08 01 00 ff ff 03 28");
inline AttStep const kDescriptorsRequest = fromClient("08 01 00 ff ff 02 29");
// clang-format off
inline AttScript const kDiscovery = {
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
inline AttStep const kMtuRequest = fromClient("02 f7 00");

inline Characteristic& characteristicOf(BluetoothLE& ble, uint16_t valueHandle) {
    for (auto& service : ble.services())
        for (auto& characteristic : service.characteristics)
            if (characteristic.valueHandle == valueHandle) return characteristic;
    throw std::runtime_error("no characteristic with value handle " + std::to_string(valueHandle));
}

/// The device's end of a connection the host handed over, and the address the
/// client connected to.
struct Connection {
    std::shared_ptr<AttPeer> peer;
    uint64_t address;
    bool publicAddress;
};

// One client on a socket-pair host, the connections it made and what it
// reports: how links ended, and notifications and indications as "handle: bytes".
struct ScriptedLink {
    Reports<Connection> peers;
    // Sent by the device before the client has seen its link come up.
    std::string greeting;
    sim::SocketPairBluetoothHost host{[this](int socket, uint64_t address, bool publicAddress) {
        auto const peer = std::make_shared<AttPeer>(socket);
        if (!greeting.empty()) peer->send(greeting);
        peers.add({peer, address, publicAddress});
    }};
    Reports<Reason> ends;
    Reports<std::string> notifications;
    BluetoothLE ble{host};

    ScriptedLink() { ble.setDisconnectedCallback(ends.callback()); }

    /// The device's end, once the link is up.
    std::shared_ptr<AttPeer> connect() {
        size_t const before = peers.all().size();
        ble.connect(kAddress, false);
        std::vector<Connection> const connections = peers.wait(before + 1);
        EXPECT_TRUE(eventually([this] { return ble.state() == BluetoothLE::State::Connected; }));
        if (connections.size() > before) return connections.back().peer;
        ADD_FAILURE() << "the client never connected";
        return std::make_shared<AttPeer>(-1);
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

}  // namespace gatttest
