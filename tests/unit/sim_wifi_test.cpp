// The simulated device's WiFi over device time: joining in phases, what each
// kind of model keeps, and the networks within reach coming and going.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "sim_test_host.h"

namespace {

using namespace simtest;

/// "status network address" as the information record gives them, then
/// "name:flags" of each known network (none where 0x70 is refused).
std::string wifiState(TestHost& host) {
    Bytes const info = host.call(0x01).payload;
    std::string state = fmt::format("{} {} {}", info[43], ByteReader(info.data() + 44, 32).readString(32),
                                    fmt::join(info.begin() + 78, info.begin() + 82, "."));
    Bytes const list = host.call(0x70).payload;
    for (size_t at = 0; at + 35 <= list.size(); at += 35)
        state += fmt::format(" {}:{}", ByteReader(list.data() + at, 32).readString(32), list[at + 33]);
    return state;
}

/// The networks a scan reports, as they come: name and signal.
std::vector<std::pair<std::string, int>> scan(TestHost& host) {
    std::vector<std::pair<std::string, int>> found;
    for (Frame const& f : host.exchange(0x60))
        if (f.code == sim::kNotificationCode)
            found.emplace_back(ByteReader(f.payload.data(), 32).readString(32), static_cast<int8_t>(f.payload[32]));
    return found;
}

// Connecting for 2 s, then connected without an address for 1 s; a wrong
// password, or a network out of reach, fails after connecting; an open one
// takes any password. The one-network model keeps the last network only. The
// list model marks a failed entry (flags: 1 in use, 2 failed, 4 metered) and
// goes back to a known network in reach; an entry stored anew is joined on its
// own once the device is on no network.
TEST(SimWifi, JoinsInPhasesOfDeviceTime) {
    // A command (0x01, a read, where only time passes), the seconds after it, the state.
    using Step = std::tuple<uint16_t, Bytes, int64_t, std::string>;
    std::pair<sim::WifiKind, std::vector<Step>> const kinds[] = {
        {sim::WifiKind::OneNetwork,
         {{0x61, networkRecord("Skipper", 4, "aye-aye"), 0, "1 Skipper 0.0.0.0"},
          {0x01, {}, 1, "1 Skipper 0.0.0.0"},
          {0x01, {}, 1, "3 Skipper 0.0.0.0"},
          {0x61, networkRecord("Skipper", 4, "aye-aye-skipper"), 2, "2 Skipper 0.0.0.0"},
          {0x61, networkRecord("Marina-Guest", 0, "anything"), 3, "2 Marina-Guest 127.0.0.1"},
          {0x61, networkRecord("Atlantis", 3, "deep-blue"), 5, "3 Atlantis 0.0.0.0"}}},
        {sim::WifiKind::NetworkList,
         {{0x61, networkRecord("Skipper", 4, "aye-aye"), 2, "1 HarbourNet 0.0.0.0 HarbourNet:0 Skipper:2"},
          {0x01, {}, 3, "2 HarbourNet 127.0.0.1 HarbourNet:1 Skipper:2"},
          {0x71, networkRecord("Skipper", 4, "aye-aye-skipper", true), 0,
           "2 HarbourNet 127.0.0.1 HarbourNet:1 Skipper:6"},
          {0x72, Bytes{0}, 0, "1 Skipper 0.0.0.0 Skipper:6"},
          {0x01, {}, 3, "2 Skipper 127.0.0.1 Skipper:5"}}},
    };
    for (auto const& [kind, steps] : kinds) {
        sim::SimulatedDeviceConfig config = model(0x41);
        config.wifiKind = kind;
        Bench b(config);
        for (auto const& [code, payload, seconds, state] : steps) {
            SCOPED_TRACE(state);
            EXPECT_EQ(b.host.call(code, payload).code, 0);
            b.advance(seconds);
            EXPECT_EQ(wifiState(b.host), state);
        }
        EXPECT_EQ(b.device.snapshot().wifiNetworkCount, 1u);
    }
}

// Scans a minute apart over an hour, the same for the same seed: strongest
// first, three networks always within reach and the others coming and going,
// signals drifting; a network joined while in reach stays in reach.
TEST(SimWifi, NetworksWithinReachChangeWithTime) {
    Bench a;
    Bench twin;
    std::map<std::string, int> minutesSeen;
    std::set<int> harbourSignals;
    bool joined = false;
    for (int minute = 0; minute < 60; ++minute) {
        SCOPED_TRACE(minute);
        auto const found = scan(a.host);
        EXPECT_EQ(scan(twin.host), found);
        EXPECT_TRUE(std::is_sorted(found.begin(), found.end(),
                                   [](auto const& x, auto const& y) { return x.second > y.second; }));
        std::map<std::string, int> signals(found.begin(), found.end());
        for (auto const& [name, signal] : signals) ++minutesSeen[name];
        harbourSignals.insert(signals["HarbourNet"]);
        if (!joined && signals.count("Sunseeker-5") > 0) {
            joined = true;
            for (Bench* bench : {&a, &twin}) bench->host.call(0x61, networkRecord("Sunseeker-5", 3, "sundowner55"));
        }
        EXPECT_TRUE(!joined || signals.count("Sunseeker-5") > 0);
        a.advance(60);
        twin.advance(60);
    }
    EXPECT_EQ(wifiState(a.host), "2 Sunseeker-5 127.0.0.1 HarbourNet:0 Sunseeker-5:1");
    for (std::string const name : {"HarbourNet", "Marina-Guest", "Skipper"}) EXPECT_EQ(minutesSeen[name], 60) << name;
    for (std::string const name : {"OldBoat", "Camper-WiFi", "Lighthouse-AP"})
        EXPECT_TRUE(minutesSeen[name] > 0 && minutesSeen[name] < 60) << name;
    EXPECT_GT(harbourSignals.size(), 3u);
}

}  // namespace
