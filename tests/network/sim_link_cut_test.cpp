// zelmor-sim's SIGUSR2: every open link of one served device after another is
// closed, direct ones and those through the hub, while the other devices keep
// theirs and the device cut takes new connections at once.
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device_link.h"
#include "frame_codec.h"
#include "loopback_peers.h"
#include "zelmorctl_fleet.h"

namespace {

/// A direct link and one through the hub, each with a session the device has
/// answered.
struct DeviceLinks {
    RawSocket direct;
    std::unique_ptr<SimLink> hub = std::make_unique<SimLink>();
};

bool answers(RawSocket& link);

DeviceLinks openLinks(SimFleet::Device const& device) {
    DeviceLinks links{RawSocket::connected(device.address.c_str(), 7208)};
    EXPECT_TRUE(answers(links.direct));
    Zelmor::DeviceIdentifier const id = parseDeviceLink(device.link).identifier.value();
    links.hub->connectHub({id.channelId, id.key});
    EXPECT_EQ(std::get<0>(links.hub->info()), SimLink::Code::Success);
    return links;
}

/// The link answers an info request: a whole frame comes, up to its closing
/// delimiter.
bool answers(RawSocket& link) {
    std::vector<uint8_t> request;
    encodeFrame(FrameHeader{0x01, 1, 0}, nullptr, nullptr, request);
    link.send(request);
    bool body = false;
    for (std::vector<uint8_t> byte = link.read(1); !byte.empty(); byte = link.read(1)) {
        if (byte[0] == 0 && body) return true;
        body = byte[0] != 0;
    }
    return false;
}

bool hungUp(DeviceLinks& links) {
    bool const direct = links.direct.read().empty() && links.direct.closed();
    return direct && std::get<0>(links.hub->ended.get(std::chrono::seconds(10))) == SimLink::Reason::ConnectionLost;
}

TEST(SimLinkCut, EachSignalClosesEveryLinkOfTheNextDeviceInTurn) {
    SimFleet fleet({"--device", "K", "--device", "V", "--no-announce", "--firmware", "none"});
    ASSERT_EQ(fleet.size(), 2u);
    std::vector<std::optional<DeviceLinks>> links(2);
    for (size_t d = 0; d < 2; ++d) links[d].emplace(openLinks(fleet.device(d)));
    // The turn starts over after the last device.
    for (size_t const cut : {0u, 1u, 0u}) {
        SCOPED_TRACE(cut);
        if (links[cut]->direct.closed()) links[cut].emplace(openLinks(fleet.device(cut)));
        ASSERT_TRUE(fleet.process().signal(SIGUSR2));
        auto const line = fleet.process().readLine(std::chrono::seconds(10));
        ASSERT_TRUE(line);
        auto const json = nlohmann::json::parse(*line);
        EXPECT_EQ(json["links_closed"], fleet.device(cut).address);
        EXPECT_EQ(json["connections"], 2);
        EXPECT_TRUE(hungUp(*links[cut]));

        // The other device's links stay; its hub link is counted when its own
        // turn comes.
        if (!links[1 - cut]->direct.closed()) {
            EXPECT_TRUE(answers(links[1 - cut]->direct));
            EXPECT_EQ(links[1 - cut]->hub->ends, 0);
        }
        EXPECT_EQ(zelmorctl({"--lan", fleet.device(cut).address, "info"}).status, 0);
    }
}

}  // namespace
