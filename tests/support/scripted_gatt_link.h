// A GATT client on a socket-pair host with a scripted device behind it: the
// client's link events, the notifications it delivers, and the database the
// discovery scripts describe.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "att_script.h"
#include "bluetooth_le.h"
#include "callback_result.h"
#include "socket_pair_bluetooth_host.h"
#include "test_bytes.h"

namespace gatttest {

using Reason = BluetoothLE::DisconnectReason;
using State = BluetoothLE::State;
using Characteristic = BluetoothLE::Characteristic;

inline constexpr uint64_t kAddress = 0xC25A4C000001;
inline constexpr auto kPatience = std::chrono::seconds(10);

// The device database the discovery scripts describe, paged as a device
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

// clang-format off
inline AttScript const kServicesStep = {
    fromClient("10 01 00 ff ff 00 28"), toClient("11 06 01 00 07 00 0f 18"),
    fromClient("10 08 00 ff ff 00 28"), toClient("11 14 10 00 18 00 " + deviceUuid("00")),
    fromClient("10 19 00 ff ff 00 28"), toClient("01 10 19 00 0a"),
};
inline AttScript const kCharacteristicsStep = {
    fromClient("08 01 00 ff ff 03 28"), toClient("09 07 02 00 0a 03 00 1a 2a 04 00 12 05 00 19 2a"),
    fromClient("08 05 00 ff ff 03 28"), toClient("09 15 11 00 20 12 00 " + deviceUuid("01")),
    fromClient("08 12 00 ff ff 03 28"), toClient("09 15 14 00 3e 15 00 " + deviceUuid("02")),
    fromClient("08 15 00 ff ff 03 28"), toClient("01 08 15 00 0a"),
};
inline AttScript const kDescriptorsStep = {
    fromClient("08 01 00 ff ff 02 29"), toClient("09 04 06 00 00 00 13 00 00 00"),
    fromClient("08 14 00 ff ff 02 29"), toClient("09 04 16 00 00 00"),
    fromClient("08 17 00 ff ff 02 29"), toClient("01 08 17 00 0a"),
};
// clang-format on
inline AttScript const kDiscovery = kServicesStep + kCharacteristicsStep + kDescriptorsStep;
inline AttScript const kMtuRequest = {fromClient("02 f7 00")};

template <class Condition>
bool waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& changed, Condition condition) {
    return changed.wait_for(lock, kPatience, condition);
}

// For states nobody signals: the host's held connection.
template <class Condition>
bool eventually(Condition condition) {
    auto const deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

class LinkEvents {
public:
    void connected() {
        std::lock_guard lock(mutex_);
        ++connections_;
        changed_.notify_all();
    }
    void disconnected(Reason reason) {
        std::lock_guard lock(mutex_);
        reasons_.push_back(reason);
        changed_.notify_all();
    }
    bool waitConnections(size_t count) {
        std::unique_lock lock(mutex_);
        return waitUntil(lock, changed_, [&] { return connections_ >= count; });
    }
    /// The reason the count-th link ended with.
    std::optional<Reason> waitEnd(size_t count = 1) {
        std::unique_lock lock(mutex_);
        if (!waitUntil(lock, changed_, [&] { return reasons_.size() >= count; })) return std::nullopt;
        return reasons_[count - 1];
    }
    size_t connections() {
        std::lock_guard lock(mutex_);
        return connections_;
    }
    std::vector<Reason> reasons() {
        std::lock_guard lock(mutex_);
        return reasons_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t connections_ = 0;
    std::vector<Reason> reasons_;
};

// Notifications and indications as "handle: bytes".
class Notifications {
public:
    void add(uint16_t handle, uint8_t const* data, size_t length) {
        std::lock_guard lock(mutex_);
        received_.push_back(std::to_string(handle) + ": " + hex(data, length));
        changed_.notify_all();
    }
    std::vector<std::string> wait(size_t count) {
        std::unique_lock lock(mutex_);
        waitUntil(lock, changed_, [&] { return received_.size() >= count; });
        return received_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> received_;
};

inline Characteristic& characteristicOf(BluetoothLE& ble, uint16_t valueHandle) {
    for (auto& service : ble.services())
        for (auto& characteristic : service.characteristics)
            if (characteristic.valueHandle == valueHandle) return characteristic;
    throw std::runtime_error("no characteristic with value handle " + std::to_string(valueHandle));
}

template <class Operation>
std::string thrownBy(Operation operation) {
    try {
        operation();
    } catch (BluetoothLE::Exception const& e) {
        return e.what();
    }
    return "nothing thrown";
}

// One client on a socket-pair host, its link events and notifications.
struct ScriptedLink {
    AttPeers peers;
    std::atomic<bool> refuseNext{false};
    // Sent by the device before the client has seen its link come up.
    std::string greeting;
    sim::SocketPairBluetoothHost host{[this](int socket, uint64_t address, bool publicAddress) {
        if (refuseNext.exchange(false)) {
            ::close(socket);
            return;
        }
        if (!greeting.empty()) {
            std::vector<uint8_t> const pdu = fromHex(greeting);
            ::send(socket, pdu.data(), pdu.size(), MSG_NOSIGNAL);
        }
        peers.adopt(socket, address, publicAddress);
    }};
    LinkEvents events;
    Notifications notifications;
    BluetoothLE ble{host};

    ScriptedLink() {
        ble.setConnectedCallback([this] { events.connected(); });
        ble.setDisconnectedCallback([this](Reason reason) { events.disconnected(reason); });
    }

    /// The device's end, once the link is up.
    AttPeer connect() {
        size_t const before = events.connections();
        ble.connect(kAddress, false);
        std::optional<AttPeers::Connection> connection = peers.next();
        if (!connection) {
            ADD_FAILURE() << "the client never connected";
            return AttPeer(-1);
        }
        EXPECT_TRUE(events.waitConnections(before + 1));
        return std::move(connection->peer);
    }

    /// Discovers kDiscovery's database; every characteristic reports to notifications.
    void discover(AttPeer& peer) {
        CallbackResult<> discovered;
        ble.discoverServices([this, done = discovered.callback()] {
            for (auto& service : ble.services())
                for (auto& characteristic : service.characteristics)
                    characteristic.handler = [this, handle = characteristic.valueHandle](uint8_t const* data,
                                                                                         size_t length) {
                        notifications.add(handle, data, length);
                    };
            done();
        });
        ASSERT_TRUE(peer.play(kDiscovery));
        discovered.get(kPatience);
    }
};

using Action = std::function<void(BluetoothLE&)>;

inline void exchangeMtu247(BluetoothLE& ble) { ble.exchangeMtu(247, {}); }

}  // namespace gatttest
