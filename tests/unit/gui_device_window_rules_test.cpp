// What the device window decides without a display: how it reaches a device
// and how often it polls, and how a link end is told.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "device_window_rules.h"
#include "hardware_revision.h"

namespace {

using Identifier = Zelmor::DeviceIdentifier;
using Reason = Zelmor::DisconnectReason;

uint32_t ipOf(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    uint8_t const bytes[4] = {a, b, c, d};
    uint32_t networkOrder = 0;
    std::memcpy(&networkOrder, bytes, sizeof bytes);
    return networkOrder;
}

TEST(DeviceWindowRulesTest, ChoosesTheLinkByModelAndKnownAddress) {
    struct Case {
        uint8_t revision;
        uint32_t ipAddress;
        LinkChoice link;
    };
    uint32_t const lan = ipOf(127, 0, 0, 1);
    Case const cases[] = {
        {0x21, 0, LinkChoice::Bluetooth},   {0x21, lan, LinkChoice::Bluetooth}, {0x31, lan, LinkChoice::Bluetooth},
        {0x00, lan, LinkChoice::Bluetooth}, {0x50, lan, LinkChoice::Bluetooth}, {0x10, lan, LinkChoice::Lan},
        {0x41, lan, LinkChoice::Lan},       {0x10, 0, LinkChoice::Hub},         {0x4F, 0, LinkChoice::Hub},
    };
    for (auto const& c : cases) {
        Identifier id;
        id.hardwareRevision = c.revision;
        id.ipAddress = c.ipAddress;
        id.bluetoothAddress = 0xC25A4C000001;
        EXPECT_EQ(chooseLink(id), c.link) << unsigned{c.revision} << " " << c.ipAddress;
    }
    // The hub is polled less often than a direct link.
    EXPECT_EQ(monitorPollMs(true), 1000u);
    EXPECT_EQ(monitorPollMs(false), 2000u);
}

TEST(DeviceWindowRulesTest, TellsTheUserWhyALinkEndedUnlessItWasClosedHere) {
    struct Case {
        uint8_t reason;
        char const* message;
    };
    Case const cases[] = {
        {0, nullptr}, {1, "Device failed to connect"}, {2, "Device disconnected"}, {7, "Device disconnected"},
        {255, "Device disconnected"},
    };
    for (auto const& c : cases) {
        LinkEndOutcome const outcome = linkEndOutcome(static_cast<Reason>(c.reason));
        EXPECT_EQ(outcome.showMessage, c.message != nullptr) << unsigned{c.reason};
        if (c.message == nullptr)
            EXPECT_EQ(outcome.message, nullptr) << unsigned{c.reason};
        else
            EXPECT_STREQ(outcome.message, c.message) << unsigned{c.reason};
    }
    EXPECT_STREQ(kLinkEndCaption, "Info");
}

TEST(DeviceWindowRulesTest, IdentifierOfASightingCarriesWhoAndWhere) {
    ZelmorScanner::Advertisement a;
    a.name = "Boat";
    a.serial = 0x00A1B2C3D4E5F607;
    a.hardwareRevision = 0x21;
    a.firmwareVersion = 0x0132;
    a.bluetoothAddress = 0xC25A4C000001;
    a.ipAddress = ipOf(127, 0, 0, 2);
    Identifier expected;
    expected.name = "Boat";
    expected.serial = 0x00A1B2C3D4E5F607;
    expected.hardwareRevision = 0x21;
    expected.bluetoothAddress = 0xC25A4C000001;
    expected.ipAddress = ipOf(127, 0, 0, 2);
    EXPECT_EQ(identifierFromAdvertisement(a), expected);
}

TEST(DeviceWindowRulesTest, WifiAccessPointIsAWifiModelReachedOnTheLan) {
    Identifier const id = wifiDirectIdentifier();
    EXPECT_EQ(id.ipAddress, ipOf(192, 168, 100, 1));
    EXPECT_TRUE(isWifiFamily(id.hardwareRevision));
    EXPECT_EQ(chooseLink(id), LinkChoice::Lan);
    EXPECT_EQ(id.name, "Zelmor-V access point");
}

TEST(DeviceWindowRulesTest, WindowTitleNamesTheDevice) {
    EXPECT_EQ(deviceWindowTitle("Boat"), "Zelmor Manager: Boat");
    EXPECT_EQ(deviceWindowTitle(""), "Zelmor Manager: ");
    EXPECT_EQ(deviceWindowTitle("{} 100%"), "Zelmor Manager: {} 100%");
}

}  // namespace
