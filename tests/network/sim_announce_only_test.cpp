// zelmor-sim's devices that only announce themselves, as zelmorctl scan hears
// them: each from its own address, with no listener behind it, and switched
// off by SIGUSR1.
#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>

#include "zelmorctl_fleet.h"

namespace {

/// Each device heard as "serial from address".
std::set<std::string> heardDevices() {
    std::set<std::string> heard;
    for (auto const& line : jsonLines(zelmorctl({"--json", "scan", "--seconds", "2"})))
        heard.insert(line["serial"].get<std::string>() + " from " + line["ip"].get<std::string>());
    return heard;
}

TEST(SimAnnounceOnly, DevicesAnnounceFromTheirOwnAddressesWithoutAListenerUntilSwitchedOff) {
    SimFleet fleet({"--device", "K", "--announce-only", "40", "--fall-silent", "15", "--no-hub", "--firmware", "none"});
    ASSERT_EQ(fleet.size(), 41u);
    std::set<std::string> all;
    for (size_t i = 0; i < fleet.size(); ++i) {
        SCOPED_TRACE(i);
        all.insert(fleet.device(i).serial + " from " + fleet.device(i).address);
        EXPECT_EQ(fleet.device(i).line["port"].is_null(), i > 0);
        // The first is the served Zelmor-K, then Zelmor-K and Zelmor-V in turn.
        EXPECT_EQ(fleet.device(i).revision, i % 2 == 1 || i == 0 ? 0x10 : 0x41);
    }
    EXPECT_EQ(fleet.device(40).address, "127.0.0.42");
    EXPECT_EQ(heardDevices(), all);
    // Nobody listens on an announce-only device's address.
    ProgramRun const info = zelmorctl({"--lan", fleet.device(1).address, "info"});
    EXPECT_NE(info.status, 0) << info.out;

    ASSERT_TRUE(fleet.process().signal(SIGUSR1));
    for (size_t i = 26; i < fleet.size(); ++i) all.erase(fleet.device(i).serial + " from " + fleet.device(i).address);
    // Datagrams already on their way when the signal came may still arrive.
    std::set<std::string> heard;
    for (int attempt = 0; attempt < 3 && heard != all; ++attempt) heard = heardDevices();
    EXPECT_EQ(heard, all);
}

}  // namespace
