// zelmor-sim as a user runs it, reached with zelmorctl: what it prints, that
// each device it prints is there by its address and through the hub by its
// link (so every way to a device, once), and how it ends.
#include <gtest/gtest.h>

#include <cstring>

#include "loopback_peers.h"
#include "zelmorctl_fleet.h"

namespace {

using namespace std::chrono_literals;

TEST(SimProgram, ServesTheDefaultFleetItPrintsByAddressAndByLinkAndExitsOnSigterm) {
    SimFleet fleet({"--no-announce"});
    ASSERT_EQ(fleet.size(), 3u);
    char const* const addresses[] = {"127.0.0.2", "127.0.0.3", "127.0.0.4"};
    int const revisions[] = {0x10, 0x41, 0x41};
    for (size_t i = 0; i < fleet.size(); ++i) {
        SimFleet::Device const& device = fleet.device(i);
        EXPECT_EQ(device.address, addresses[i]);
        EXPECT_EQ(device.line["hub"], "127.0.0.1:7209");
        EXPECT_EQ(device.revision, revisions[i]);
        // Only the last one has a user password.
        bool const locked = i == 2;
        EXPECT_EQ(device.line["user_password"] != "", locked);

        for (std::string const way : {"--lan", "--link"}) {
            SCOPED_TRACE(way + " to " + device.name);
            std::string const target = way == "--lan" ? device.address : device.link;
            nlohmann::json const info = jsonResult(zelmorctl({way, target, "--json", "info"}));
            EXPECT_EQ(info["name"], device.name);
            EXPECT_EQ(info["serial"], device.serial);
            EXPECT_EQ(info["hardware_revision"], device.revision);
            EXPECT_EQ(info["model"], device.revision == 0x10 ? "Zelmor-K" : "Zelmor-V");
            EXPECT_EQ(info["firmware"], "1.32");
            EXPECT_EQ(info["locked"], locked);
            EXPECT_EQ(info["ip"], device.address);
            ProgramRun const monitor = zelmorctl({way, target, "--json", "monitor", "--count", "1"});
            if (locked) {
                EXPECT_EQ(monitor.err, "Feature is locked by user password.\n");
                continue;
            }
            nlohmann::json const reading = jsonResult(monitor);
            EXPECT_GT(reading["voltage1"].get<double>(), 10.0);
            EXPECT_EQ(reading["rssi"].is_null(), device.revision == 0x10);
        }
    }
    ASSERT_TRUE(fleet.process().signal(SIGTERM));
    EXPECT_EQ(fleet.process().wait(30s), 0);
    EXPECT_EQ(fleet.process().takeErrors(), "");
}

TEST(SimProgram, AnAddressInUseIsReportedAndEndsTheProgram) {
    RawSocket const taken = RawSocket::listening("127.0.0.2", 7208);
    ProgramRun const run = runProgram(ZELMOR_SIM_PATH, {"--porcelain", "--no-hub", "--no-announce"}, 30s);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out.find("ready"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find(std::string("127.0.0.2:7208: ") + std::strerror(EADDRINUSE)), std::string::npos) << run.err;
}

}  // namespace
