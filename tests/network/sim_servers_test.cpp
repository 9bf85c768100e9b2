// The simulator's servers over real loopback sockets: a device on its own
// address (and how the transport faults show on the wire), the hub relay and
// the announcer. The SimProgram tests reach zelmor-sim's devices through them.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "announcer.h"
#include "auth_key.h"
#include "byte_io.h"
#include "command_codes.h"
#include "device_server.h"
#include "frame_codec.h"
#include "hub_relay.h"
#include "loopback_peers.h"
#include "simulated_device.h"
#include "zelmor_scanner_impl.h"

namespace {

using Code = SimLink::Code;

constexpr char const* kAddress = "127.0.0.41";

sim::SimulatedDeviceConfig deviceConfig(uint8_t revision, uint64_t serial) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.serial = serial;
    config.seed = serial;
    config.historyDays = 1;
    return config;
}

/// The longer of a day's history: each of its two files holds what the time
/// of day leaves it, down to nothing just after midnight.
uint32_t longestLogFile(sim::SimulatedDevice& device) {
    std::vector<sim::LogFileEntry> const files = device.logFiles();
    return std::max_element(files.begin(), files.end(), [](auto const& a, auto const& b) { return a.size < b.size; })
        ->id;
}

/// A device served on kAddress, misbehaving as `faults` say.
struct ServedDevice {
    explicit ServedDevice(sim::FaultSettings const& faults = {},
                          sim::SimulatedDeviceConfig const& config = deviceConfig(0x10, 0xA1))
        : device(config) {
        device.faults().configure(faults);
        EXPECT_TRUE(server.start()) << server.error();
    }

    sim::SimulatedDevice device;
    sim::DeviceServer server{device, kAddress};
};

/// A plain request frame as a LAN host puts it on the link.
std::vector<uint8_t> plainFrame(uint16_t code, uint16_t sequence, std::vector<uint8_t> const& payload) {
    std::vector<uint8_t> encoded;
    encodeFrame({code, sequence, static_cast<uint16_t>(payload.size())}, payload.data(), nullptr, encoded);
    return encoded;
}

TEST(SimDeviceServer, GivesEveryConnectionASessionOfItsOwn) {
    sim::SimulatedDeviceConfig config = deviceConfig(0x10, 0xA1);
    config.userPassword = "heron";
    ServedDevice served({}, config);
    SimLink unlocked;
    unlocked.connectLan(kAddress);
    CallbackResult<Code> unlock;
    unlocked.zelmor.requestUnlock(makeAuthKey("heron"), unlock.callback());
    ASSERT_EQ(unlock.get(), std::tuple(Code::Success));

    // The first host's unlock is not the second one's.
    SimLink other;
    other.connectLan(kAddress);
    EXPECT_EQ(other.request(command::kGetMonitorData), Code::LockedByUserPassword);
    EXPECT_EQ(unlocked.request(command::kGetMonitorData), Code::Success);
}

TEST(SimDeviceServer, ClosesTheConnectionOnceTheSessionHasSentItsLimit) {
    sim::FaultSettings faults;
    faults.closeAfterBytes = 50;
    ServedDevice served(faults);
    // Exactly the limit arrives, the frame that crosses it cut, then the close.
    RawSocket host = RawSocket::connected(kAddress, sim::DeviceServer::kDefaultPort);
    host.send(plainFrame(0x01, 1, {}));
    EXPECT_EQ(host.read().size(), 50u);
    EXPECT_TRUE(host.closed());
}

TEST(SimDeviceServer, StopsWhileAHostLeavesLargeAnswersUnread) {
    sim::SimulatedDeviceConfig config = deviceConfig(0x10, 0xA1);
    config.logIntervalSeconds = 1;
    ServedDevice served({}, config);
    // Far more answers than the socket buffers hold: the device's writer ends
    // up blocked on a host that never reads.
    RawSocket host = RawSocket::connected(kAddress, sim::DeviceServer::kDefaultPort);
    std::vector<uint8_t> payload;
    ByteWriter(payload).write<uint32_t>(longestLogFile(served.device)).write<uint32_t>(0).write<uint32_t>(131072);
    for (uint16_t sequence = 1; sequence <= 60; ++sequence) host.send(plainFrame(0x44, sequence, payload));
    ASSERT_EQ(host.read(1).size(), 1u);
    served.server.stop();
    host.read();
    EXPECT_TRUE(host.closed());
}

// A host with a small receive buffer that asks for far more than it holds:
// answers leave partly at once and partly from the device's queue, and each
// still arrives whole and after the one before.
TEST(SimDeviceServer, AnswersArriveWholeAndInOrderWhenTheHostReadsLate) {
    sim::SimulatedDeviceConfig config = deviceConfig(0x10, 0xA1);
    config.logIntervalSeconds = 1;
    ServedDevice served({}, config);
    uint32_t const file = longestLogFile(served.device);
    std::vector<uint8_t> const log = served.device.logFile(file);
    RawSocket host = RawSocket::connected(kAddress, sim::DeviceServer::kDefaultPort, 4096);
    std::vector<uint8_t> expected;
    for (uint16_t sequence = 1; sequence <= 40; ++sequence) {
        std::vector<uint8_t> payload;
        ByteWriter(payload).write<uint32_t>(file).write<uint32_t>(sequence * 1000u).write<uint32_t>(131072);
        host.send(plainFrame(0x44, sequence, payload));
        for (uint32_t at = 0; at < 131072; at += 4096)  // frames of the default 4096 bytes
            encodeFrame({at + 4096 < 131072 ? kContinuationCode : uint16_t{0}, sequence, 4096},
                        &log.at(sequence * 1000u + at), nullptr, expected);
    }
    EXPECT_TRUE(host.read(expected.size()) == expected);
}

// Requests the device loses wait half a second, not the default eight: a lost
// answer never comes, however long it is given. One that hangs throws.
TEST(SimDeviceServer, EveryRequestEndsWithACodeUnderFaultsAndTheLinkRecoversAfterwards) {
    sim::FaultSettings stalled;
    stalled.stalled = true;
    sim::FaultSettings lossy;
    lossy.dropFraction = 0.05;
    lossy.corruptFraction = 0.01;
    // Each row: the faults, how many requests, how many of them succeed at least.
    for (auto const& [faults, requests, successes] : {std::tuple{stalled, 1, 0}, {lossy, 100, 81}}) {
        ServedDevice served(faults, deviceConfig(0x10, 11));
        SimLink link;
        link.connectLan(kAddress);
        std::map<Code, int> codes;
        for (int i = 0; i < requests; ++i) ++codes[link.request(command::kGetMonitorData, 500)];
        EXPECT_GE(codes[Code::Success], successes);
        EXPECT_GT(codes[Code::RequestTimeout], 0);
        served.device.faults().configure({});
        EXPECT_EQ(std::get<0>(link.info()), Code::Success);
        EXPECT_EQ(link.ends, 0);
    }
}

/// Whether the hub relay closes a connection that opens with this hello,
/// without a byte in answer.
bool turnedAway(Zelmor::WifiAccessKey const& key, uint8_t version = 0x02) {
    RawSocket host = RawSocket::connected("127.0.0.1", sim::HubRelay::kDefaultPort);
    std::vector<uint8_t> hello{version};
    hello.insert(hello.end(), key.keyId.begin(), key.keyId.end());
    host.send(hello);
    return host.read().empty() && host.closed();
}

TEST(SimHubRelay, FindsADeviceUnderItsRenewedChannelOnly) {
    sim::SimulatedDevice wifi(deviceConfig(0x41, 0xB2));
    sim::HubRelay hub;
    hub.addDevice(wifi);
    ASSERT_TRUE(hub.start()) << hub.error();
    EXPECT_TRUE(turnedAway(wifi.accessKey(), 0x03));
    Zelmor::WifiAccessKey const old = wifi.accessKey();
    SimLink renewing;
    renewing.connectHub(old);
    EXPECT_FALSE(renewing.zelmor.isDirectConnection());
    CallbackResult<Code> reset;
    renewing.zelmor.requestResetAccessKeys(reset.callback());
    ASSERT_EQ(reset.get(), std::tuple(Code::Success));
    // The link that renewed the keys stays up under the old ones.
    EXPECT_EQ(std::get<0>(renewing.info()), Code::Success);
    ASSERT_NE(wifi.accessKey(), old);

    // The old channel is now unknown to the relay.
    EXPECT_TRUE(turnedAway(old));
    SimLink fresh;
    fresh.connectHub(wifi.accessKey());
    EXPECT_EQ(std::get<1>(fresh.info()).serial, 0xB2u);
}

// An address in use is refused likewise; SimProgram shows it with the reason.
TEST(SimServers, RefuseAddressesOutsideLoopbackWithTheReason) {
    sim::SimulatedDevice lan(deviceConfig(0x10, 0xA1));
    sim::DeviceServer server(lan, "192.168.1.20");
    EXPECT_FALSE(server.start());
    EXPECT_NE(server.error().find("192.168.1.20"), std::string::npos) << server.error();
    // The announcer checks both ends; its refusal names what it refuses.
    for (auto const& [target, port, from, named] :
         {std::tuple{"255.255.255.255", 7207, "127.0.0.42", "255.255.255.255"},
          {"127.0.0.1", 7207, "192.168.0.42", "192.168.0.42"},
          {"127.0.0.1", 0, "127.0.0.42", "127.0.0.1:0"}}) {
        sim::Announcer announcer(target, static_cast<uint16_t>(port));
        announcer.addDevice(lan, from);
        EXPECT_FALSE(announcer.start()) << target;
        EXPECT_NE(announcer.error().find(named), std::string::npos) << announcer.error();
    }
}

TEST(ZelmorScannerTest, PortInUseIsReportedWithTheSystemsMessage) {
    ZelmorScannerImpl first;
    ASSERT_TRUE(first.startWifiScan());
    ZelmorScannerImpl second;
    EXPECT_FALSE(second.startWifiScan());
    EXPECT_EQ(second.lastError(), "Cannot listen on UDP port 7207: Address already in use");
}

}  // namespace
