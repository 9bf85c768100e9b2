// The simulated device's WiFi over device time: joining in phases, wrong
// passwords, what each kind of model keeps, and the networks within reach
// coming and going.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "sim_test_host.h"

namespace {

using namespace simtest;

sim::SimulatedDeviceConfig wifiModel(sim::WifiKind kind) {
    sim::SimulatedDeviceConfig config = model(0x41);
    config.wifiKind = kind;
    config.ipAddress = {127, 0, 0, 9};
    return config;
}

/// "status network address" as the information record gives them.
std::string wifiState(TestHost& host) {
    Frame const info = host.call(0x01);
    ByteReader r(info.payload.data() + 43, 39);
    auto const status = r.read<uint8_t>();
    std::string const network = r.readString(32);
    r.skip(2);  // lock and extra status
    uint8_t ip[4];
    r.readBytes(ip, 4);
    return fmt::format("{} {} {}.{}.{}.{}", status, network, ip[0], ip[1], ip[2], ip[3]);
}

/// "name:flags" of each known network, in the device's order.
std::string knownNetworks(TestHost& host) {
    Frame const list = host.call(0x70);
    std::string text;
    for (size_t at = 0; at + 35 <= list.payload.size(); at += 35) {
        ByteReader r(list.payload.data() + at, 35);
        std::string const name = r.readString(32);
        r.skip(1);
        text += fmt::format("{}{}:{}", text.empty() ? "" : " ", name, r.read<uint8_t>());
    }
    return text;
}

/// The networks a scan reports, as they come: name and signal.
std::vector<std::pair<std::string, int>> scan(TestHost& host) {
    std::vector<std::pair<std::string, int>> found;
    for (Frame const& f : host.exchange(0x60)) {
        if (f.code != sim::kNotificationCode) continue;
        ByteReader r(f.payload.data(), f.payload.size());
        std::string const name = r.readString(32);
        found.emplace_back(name, r.read<int8_t>());
    }
    return found;
}

/// One step: time passes, a command runs (0: none), and the state that follows.
struct Step {
    int64_t advance;
    uint16_t code;
    Bytes payload;
    std::string state;
    std::string known;  // the known networks; not read when empty
};

void runSteps(Bench& b, std::vector<Step> const& steps) {
    for (Step const& s : steps) {
        SCOPED_TRACE(testing::Message() << "step " << (&s - steps.data()));
        b.advance(s.advance);
        if (s.code != 0) {
            EXPECT_EQ(b.host.call(s.code, s.payload).code, 0);
        }
        EXPECT_EQ(wifiState(b.host), s.state);
        if (!s.known.empty()) {
            EXPECT_EQ(knownNetworks(b.host), s.known);
        }
    }
}

// Connecting for 2 s, then connected without an address for 1 s; a wrong
// password, or a network out of reach, fails after the connecting phase. An
// open network takes any password. The device keeps the last network only.
TEST(SimWifi, OneNetworkModelJoinsInPhases) {
    Bench b(wifiModel(sim::WifiKind::OneNetwork));
    EXPECT_EQ(b.host.call(0x01).payload[77] & 0x02, 0) << "keeps one network";
    runSteps(b, {
                    {0, 0, {}, "2 HarbourNet 127.0.0.9", ""},
                    {0, 0x61, networkRecord("Skipper", 4, "aye-aye"), "1 Skipper 0.0.0.0", ""},
                    {1, 0, {}, "1 Skipper 0.0.0.0", ""},
                    {1, 0, {}, "3 Skipper 0.0.0.0", ""},
                    {0, 0x61, networkRecord("Skipper", 4, "aye-aye-skipper"), "1 Skipper 0.0.0.0", ""},
                    {2, 0, {}, "2 Skipper 0.0.0.0", ""},
                    {1, 0, {}, "2 Skipper 127.0.0.9", ""},
                    {0, 0x61, networkRecord("Marina-Guest", 0, "anything"), "1 Marina-Guest 0.0.0.0", ""},
                    {3, 0, {}, "2 Marina-Guest 127.0.0.9", ""},
                    {0, 0x61, networkRecord("Atlantis", 3, "deep-blue"), "1 Atlantis 0.0.0.0", ""},
                    {5, 0, {}, "3 Atlantis 0.0.0.0", ""},
                });
    EXPECT_EQ(b.device.snapshot().wifiNetworkCount, 1u);
}

// A wrong password marks the entry failed and the device goes back to a
// known network in reach; an entry stored anew is tried again on its own when
// the device is on no network, and a successful join clears the mark.
// Flags: 1 in use, 2 failed, 4 metered.
TEST(SimWifi, ListModelMarksFailuresAndJoinsKnownNetworksOnItsOwn) {
    Bench b(wifiModel(sim::WifiKind::NetworkList));
    EXPECT_EQ(b.host.call(0x01).payload[77] & 0x02, 0x02) << "keeps a list";
    runSteps(b, {
                    {0, 0x61, networkRecord("Skipper", 4, "aye-aye"), "1 Skipper 0.0.0.0", "HarbourNet:0 Skipper:0"},
                    {2, 0, {}, "1 HarbourNet 0.0.0.0", "HarbourNet:0 Skipper:2"},
                    {3, 0, {}, "2 HarbourNet 127.0.0.9", "HarbourNet:1 Skipper:2"},
                    {0, 0x71, networkRecord("Skipper", 4, "aye-aye-skipper", true), "2 HarbourNet 127.0.0.9",
                     "HarbourNet:1 Skipper:6"},
                    {0, 0x72, Bytes{0}, "1 Skipper 0.0.0.0", "Skipper:6"},
                    {3, 0, {}, "2 Skipper 127.0.0.9", "Skipper:5"},
                });
}

// Scans a minute apart over an hour: strongest first, the three networks
// always within reach among them, the others coming and going and the
// signals drifting, the same for the same seed. A network joined while in
// reach stays in reach.
TEST(SimWifi, NetworksWithinReachChangeWithTime) {
    Bench a(wifiModel(sim::WifiKind::NetworkList));
    Bench twin(wifiModel(sim::WifiKind::NetworkList));
    std::set<std::vector<std::string>> lineUps;
    std::set<int> harbourSignals;
    bool joined = false;
    for (int minute = 0; minute < 60; ++minute) {
        SCOPED_TRACE(minute);
        auto const found = scan(a.host);
        EXPECT_EQ(scan(twin.host), found);
        EXPECT_TRUE(std::is_sorted(found.begin(), found.end(),
                                   [](auto const& x, auto const& y) { return x.second > y.second; }));
        std::vector<std::string> names;
        for (auto const& [name, signal] : found) names.push_back(name);
        for (std::string const always : {"HarbourNet", "Marina-Guest", "Skipper"})
            EXPECT_NE(std::find(names.begin(), names.end(), always), names.end()) << always;
        bool const sunseeker = std::find(names.begin(), names.end(), "Sunseeker-5") != names.end();
        EXPECT_TRUE(sunseeker || !joined);
        if (sunseeker && !joined) {
            for (Bench* bench : {&a, &twin})
                EXPECT_EQ(bench->host.call(0x61, networkRecord("Sunseeker-5", 3, "sundowner55")).code, 0);
            joined = true;
        }
        lineUps.insert(names);
        for (auto const& [name, signal] : found)
            if (name == "HarbourNet") harbourSignals.insert(signal);
        a.advance(60);
        twin.advance(60);
    }
    EXPECT_TRUE(joined);
    EXPECT_EQ(wifiState(a.host), "2 Sunseeker-5 127.0.0.9");
    EXPECT_GT(lineUps.size(), 3u);
    EXPECT_GT(harbourSignals.size(), 3u);
}

}  // namespace
