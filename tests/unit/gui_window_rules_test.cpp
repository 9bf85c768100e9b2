// What the windows decide without a display: which rows the list of local
// devices keeps, how a device window reaches its device and how often it
// polls, and how it tells that a link ended.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>
#include <utility>
#include <vector>

#include "device_window_rules.h"
#include "local_device_list.h"

namespace {

std::vector<uint64_t> serials(LocalDeviceList const& list) {
    std::vector<uint64_t> out;
    for (auto const& entry : list.entries()) out.push_back(entry.advertisement.serial);
    return out;
}

TEST(LocalDeviceListTest, SameSerialRewritesItsRowAndSilentRowsGoHighestFirst) {
    // Each sighting with the row it lands in and whether that row is new.
    std::tuple<uint64_t, int64_t, size_t, bool> const sightings[] = {
        {3, 1, 0, true}, {1, 0, 1, true}, {2, 5000, 2, true}, {3, 9000, 0, false}, {4, 1, 3, true},
    };
    LocalDeviceList list;
    for (auto const& [serial, receivedMs, row, added] : sightings) {
        ZelmorScanner::Advertisement ad;
        ad.serial = serial;
        LocalDeviceList::Placement const placement = list.take(ad, receivedMs);
        EXPECT_EQ(placement.row, row) << serial;
        EXPECT_EQ(placement.added, added) << serial;
    }
    EXPECT_EQ(list.entries()[0].receivedMs, 9000);

    EXPECT_TRUE(list.age(9999).empty()) << "9999 ms is not yet too old";
    EXPECT_EQ(list.age(10001), (std::vector<size_t>{3, 1}));
    EXPECT_EQ(serials(list), (std::vector<uint64_t>{3, 2}));
    EXPECT_EQ(list.age(15000), (std::vector<size_t>{1}));
    EXPECT_EQ(serials(list), (std::vector<uint64_t>{3}));
}

TEST(DeviceWindowRulesTest, ChoosesTheLinkByModelAndKnownAddress) {
    using enum LinkChoice;
    uint32_t const lan = htonl(INADDR_LOOPBACK);
    // Bluetooth LE models never use the LAN, even when an address is known.
    std::tuple<uint8_t, uint32_t, LinkChoice> const cases[] = {
        {0x21, lan, Bluetooth}, {0x31, lan, Bluetooth}, {0x50, lan, Bluetooth}, {0x10, lan, Lan},
        {0x41, lan, Lan},       {0x10, 0, Hub},         {0x4F, 0, Hub},
    };
    for (auto const& [revision, ipAddress, link] : cases) {
        Zelmor::DeviceIdentifier id;
        id.hardwareRevision = revision;
        id.ipAddress = ipAddress;
        EXPECT_EQ(chooseLink(id), link) << unsigned{revision} << " " << ipAddress;
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
    using enum Zelmor::DisconnectReason;
    std::pair<Zelmor::DisconnectReason, char const*> const cases[] = {{ClosedLocally, nullptr},
                                                                      {ConnectFailed, "Device failed to connect"},
                                                                      {ConnectionLost, "Device disconnected"},
                                                                      {Reserved, "Device disconnected"}};
    for (auto const& [reason, message] : cases) {
        LinkEndOutcome const outcome = linkEndOutcome(reason);
        EXPECT_EQ(outcome.showMessage, message != nullptr) << +static_cast<uint8_t>(reason);
        EXPECT_STREQ(outcome.message, message);
    }
}

}  // namespace
