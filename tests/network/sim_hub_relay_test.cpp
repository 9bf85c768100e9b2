// The hub relay: hosts name a device's channel in their hello and are served by
// it over the encrypted link; anything else is turned away.
#include "hub_relay.h"

#include <gtest/gtest.h>

#include "callback_result.h"
#include "sim_link.h"
#include "sim_raw_client.h"
#include "simulated_device.h"

namespace {

using Code = SimLink::Code;
using Reason = SimLink::Reason;

sim::SimulatedDeviceConfig deviceConfig(uint8_t revision, uint64_t serial) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = revision;
    config.serial = serial;
    config.seed = serial;
    return config;
}

std::vector<uint8_t> helloFor(Zelmor::WifiAccessKey const& key, uint8_t version = 0x02) {
    std::vector<uint8_t> hello(1 + key.keyId.size(), version);
    std::copy(key.keyId.begin(), key.keyId.end(), hello.begin() + 1);
    return hello;
}

/// A relay on the hub's own address and port, as the application looks for it.
struct HubFixture : ::testing::Test {
    sim::SimulatedDevice lan{deviceConfig(0x10, 0xA1)};
    sim::SimulatedDevice wifi{deviceConfig(0x41, 0xB2)};
    sim::HubRelay hub;

    void SetUp() override {
        hub.addDevice(lan);
        hub.addDevice(wifi);
        ASSERT_TRUE(hub.start()) << hub.error();
    }
};

using SimHubRelay = HubFixture;

TEST_F(SimHubRelay, ServesEachDeviceByItsChannelOverTheEncryptedLink) {
    SimLink toWifi;
    ASSERT_TRUE(toWifi.connectHub(wifi.accessKey()));
    SimLink toLan;
    ASSERT_TRUE(toLan.connectHub(lan.accessKey()));
    auto const [wifiCode, wifiInfo] = toWifi.info();
    ASSERT_EQ(wifiCode, Code::Success);
    EXPECT_EQ(wifiInfo.serial, 0xB2u);
    auto const [lanCode, lanInfo] = toLan.info();
    ASSERT_EQ(lanCode, Code::Success);
    EXPECT_EQ(lanInfo.serial, 0xA1u);
    EXPECT_EQ(std::get<0>(toWifi.monitor()), Code::Success);
}

TEST_F(SimHubRelay, ClosesTheConnectionForAnUnknownChannelOrAnotherFirstByte) {
    Zelmor::WifiAccessKey const known = wifi.accessKey();
    Zelmor::WifiAccessKey unknown = known;
    unknown.keyId[5] ^= 0x01;
    for (std::vector<uint8_t> const& hello : {helloFor(unknown), helloFor(known, 0x03)}) {
        SimRawClient host("127.0.0.1", sim::HubRelay::kDefaultPort);
        host.send(hello);
        EXPECT_TRUE(host.readToEnd().empty());
    }

    // The application's link is accepted, then ends (how it reports the end
    // depends on whether its next write or its next read notices first).
    SimLink link;
    link.connectHub(unknown);
    EXPECT_NE(link.waitForEnd().value_or(Reason::ConnectFailed), Reason::ConnectFailed);
}

TEST_F(SimHubRelay, FindsADeviceUnderItsRenewedChannelOnly) {
    Zelmor::WifiAccessKey const old = wifi.accessKey();
    {
        SimLink link;
        ASSERT_TRUE(link.connectHub(old));
        CallbackResult<Code> reset;
        link.zelmor().requestResetAccessKeys(reset.callback());
        ASSERT_EQ(std::get<0>(reset.get()), Code::Success);
        // The link that renewed the keys stays up under the old ones.
        EXPECT_EQ(std::get<0>(link.info()), Code::Success);
    }
    Zelmor::WifiAccessKey const renewed = wifi.accessKey();
    ASSERT_NE(renewed, old);

    SimRawClient stale("127.0.0.1", sim::HubRelay::kDefaultPort);
    stale.send(helloFor(old));
    EXPECT_TRUE(stale.readToEnd().empty());
    SimLink fresh;
    ASSERT_TRUE(fresh.connectHub(renewed));
    auto const [code, info] = fresh.info();
    ASSERT_EQ(code, Code::Success);
    EXPECT_EQ(info.serial, 0xB2u);
}

}  // namespace
