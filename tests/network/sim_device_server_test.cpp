// A simulated device served over TCP on its own loopback address: what the
// application's device connection gets from it, and how the transport faults
// show on the wire.
#include "device_server.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "auth_key.h"
#include "callback_result.h"
#include "sim_link.h"
#include "sim_raw_client.h"
#include "simulated_device.h"

namespace {

using Code = SimLink::Code;
using Reason = SimLink::Reason;

constexpr char const* kAddress = "127.0.0.41";

sim::SimulatedDeviceConfig lanDevice() {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x10;
    config.name = "Boathouse";
    config.serial = 0x5A4C0000000000A1;
    config.ipAddress = {127, 0, 0, 41};
    return config;
}

TEST(SimDeviceServer, AnswersInfoAndLiveDataOnEveryConnectionWithItsOwnSession) {
    sim::SimulatedDeviceConfig config = lanDevice();
    config.userPassword = "heron";
    sim::SimulatedDevice device(config);
    sim::DeviceServer server(device, kAddress);
    ASSERT_TRUE(server.start()) << server.error();

    SimLink unlocked;
    ASSERT_TRUE(unlocked.connectLan(kAddress));
    auto const [infoCode, info] = unlocked.info();
    ASSERT_EQ(infoCode, Code::Success);
    EXPECT_EQ(info.name, "Boathouse");
    EXPECT_EQ(info.serial, config.serial);
    EXPECT_EQ(info.hardwareRevision, 0x10);
    EXPECT_EQ(info.ipAddress, loopbackAddress(kAddress));
    CallbackResult<Code> unlock;
    unlocked.zelmor().requestUnlock(makeAuthKey("heron"), unlock.callback());
    ASSERT_EQ(std::get<0>(unlock.get()), Code::Success);
    auto const [monitorCode, monitor] = unlocked.monitor();
    ASSERT_EQ(monitorCode, Code::Success);
    EXPECT_EQ(monitor.time, device.readings().time);
    EXPECT_GT(monitor.voltage1, 10.0f);

    // A second host gets a session of its own: the first one's unlock is not its.
    SimLink other;
    ASSERT_TRUE(other.connectLan(kAddress));
    EXPECT_EQ(std::get<0>(other.monitor()), Code::LockedByUserPassword);
    EXPECT_EQ(std::get<0>(unlocked.monitor()), Code::Success);
}

TEST(SimDeviceServer, RefusesAnAddressInUseOrOutsideLoopbackWithTheReason) {
    sim::SimulatedDevice device(lanDevice());
    sim::DeviceServer first(device, kAddress);
    ASSERT_TRUE(first.start()) << first.error();
    sim::DeviceServer second(device, kAddress);
    EXPECT_FALSE(second.start());
    EXPECT_NE(second.error().find(std::strerror(EADDRINUSE)), std::string::npos) << second.error();
    EXPECT_NE(second.error().find("127.0.0.41:7208"), std::string::npos) << second.error();

    sim::DeviceServer outside(device, "192.168.1.20");
    EXPECT_FALSE(outside.start());
    EXPECT_NE(outside.error().find("192.168.1.20"), std::string::npos) << outside.error();
}

TEST(SimDeviceServer, ClosesTheConnectionOnceTheSessionHasSentItsLimit) {
    sim::SimulatedDevice device(lanDevice());
    sim::FaultSettings faults;
    faults.closeAfterBytes = 50;
    device.faults().configure(faults);
    sim::DeviceServer server(device, kAddress);
    ASSERT_TRUE(server.start()) << server.error();

    // Exactly the limit arrives, the frame that crosses it cut, then the close.
    SimRawClient host(kAddress, sim::DeviceServer::kDefaultPort);
    host.send(SimRawClient::plainFrame(0x01, 1, {}));
    EXPECT_EQ(host.readToEnd().size(), 50u);

    // The application's connection sees the device hang up.
    SimLink link;
    ASSERT_TRUE(link.connectLan(kAddress));
    EXPECT_NE(std::get<0>(link.info()), Code::Success);
    EXPECT_EQ(link.waitForEnd(), Reason::ConnectionLost);
}

TEST(SimDeviceServer, PacedAndDelayedLinkStillDeliversAWholeLogFileInOrder) {
    sim::SimulatedDeviceConfig config = lanDevice();
    config.logIntervalSeconds = 10;
    config.historyDays = 1;
    sim::SimulatedDevice device(config);
    sim::FaultSettings faults;
    faults.bytesPerSecond = 512 * 1024;
    faults.answerDelayMs = 20;
    faults.delayFraction = 0.5;
    device.faults().configure(faults);
    sim::DeviceServer server(device, kAddress);
    ASSERT_TRUE(server.start()) << server.error();

    std::vector<sim::LogFileEntry> const files = device.logFiles();
    ASSERT_FALSE(files.empty());
    std::vector<uint8_t> const expected = device.logFile(files.front().id);
    ASSERT_GT(expected.size(), 40000u);

    SimLink link;
    ASSERT_TRUE(link.connectLan(kAddress));
    std::vector<uint8_t> fetched;
    // Small reads, so that many answers of several frames each cross the link.
    while (fetched.size() < expected.size()) {
        auto [code, block] = link.readLog(files.front().id, static_cast<uint32_t>(fetched.size()), 12000);
        ASSERT_EQ(code, Code::Success);
        ASSERT_FALSE(block.empty());
        fetched.insert(fetched.end(), block.begin(), block.end());
    }
    EXPECT_EQ(fetched, expected);
}

TEST(SimDeviceServer, StalledDeviceKeepsTheConnectionAndAnswersOnceItRecovers) {
    sim::SimulatedDevice device(lanDevice());
    sim::FaultSettings faults;
    faults.stalled = true;
    device.faults().configure(faults);
    sim::DeviceServer server(device, kAddress);
    ASSERT_TRUE(server.start()) << server.error();

    SimLink link;
    ASSERT_TRUE(link.connectLan(kAddress));
    EXPECT_EQ(std::get<0>(link.info()), Code::RequestTimeout);
    EXPECT_FALSE(link.ended());
    device.faults().configure({});
    EXPECT_EQ(std::get<0>(link.info()), Code::Success);
}

TEST(SimDeviceServer, StopsWhileAHostLeavesLargeAnswersUnread) {
    sim::SimulatedDeviceConfig config = lanDevice();
    config.logIntervalSeconds = 1;
    config.historyDays = 1;
    sim::SimulatedDevice device(config);
    auto server = std::make_unique<sim::DeviceServer>(device, kAddress);
    ASSERT_TRUE(server->start()) << server->error();
    uint32_t const file = device.logFiles().front().id;

    // Far more answers than the socket buffers hold: the device's writer ends
    // up blocked on a host that never reads.
    SimRawClient host(kAddress, sim::DeviceServer::kDefaultPort);
    std::vector<uint8_t> payload;
    ByteWriter(payload).write<uint32_t>(file).write<uint32_t>(0).write<uint32_t>(131072);
    for (uint16_t sequence = 1; sequence <= 60; ++sequence)
        host.send(SimRawClient::plainFrame(0x44, sequence, payload));
    ASSERT_TRUE(host.waitReadable());
    server->stop();
    server.reset();
    EXPECT_NO_THROW(host.readToEnd());
}

}  // namespace
