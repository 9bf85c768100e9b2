// What the device window decides without a display: how it reaches a device,
// how often it polls, and how a link end is told.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "device_window_rules.h"

namespace {

TEST(DeviceWindowRulesTest, ChoosesTheLinkByModelAndKnownAddress) {
    struct Case {
        uint8_t revision;
        uint32_t ipAddress;
        LinkChoice link;
    };
    using enum LinkChoice;
    uint32_t const lan = htonl(INADDR_LOOPBACK);
    // Bluetooth LE models never use the LAN, even when an address is known.
    Case const cases[] = {
        {0x21, lan, Bluetooth}, {0x31, lan, Bluetooth}, {0x50, lan, Bluetooth}, {0x10, lan, Lan},
        {0x41, lan, Lan},       {0x10, 0, Hub},         {0x4F, 0, Hub},
    };
    for (auto const& c : cases) {
        Zelmor::DeviceIdentifier id;
        id.hardwareRevision = c.revision;
        id.ipAddress = c.ipAddress;
        EXPECT_EQ(chooseLink(id), c.link) << unsigned{c.revision} << " " << c.ipAddress;
    }
    // A WiFi model in access-point mode is reached on the network it opens.
    Zelmor::DeviceIdentifier const accessPoint = wifiDirectIdentifier();
    EXPECT_EQ(accessPoint.ipAddress, htonl(0xC0A86401));  // 192.168.100.1
    EXPECT_EQ(chooseLink(accessPoint), Lan);
    EXPECT_EQ(accessPoint.name, "Zelmor-V access point");
    // The hub is polled less often than a direct link.
    EXPECT_EQ(monitorPollMs(true), 1000u);
    EXPECT_EQ(monitorPollMs(false), 2000u);
}

TEST(DeviceWindowRulesTest, TellsTheUserWhyALinkEndedUnlessItWasClosedHere) {
    struct Case {
        Zelmor::DisconnectReason reason;
        char const* message;
    };
    using enum Zelmor::DisconnectReason;
    Case const cases[] = {{ClosedLocally, nullptr},
                          {ConnectFailed, "Device failed to connect"},
                          {ConnectionLost, "Device disconnected"},
                          {Reserved, "Device disconnected"}};
    for (auto const& c : cases) {
        LinkEndOutcome const outcome = linkEndOutcome(c.reason);
        EXPECT_EQ(outcome.showMessage, c.message != nullptr) << +static_cast<uint8_t>(c.reason);
        EXPECT_STREQ(outcome.message, c.message);
    }
}

}  // namespace
