// zelmorctl firmware update against zelmor-sim and its firmware file server:
// a whole update after which the device restarts into the new version, and
// transfers cut short by Ctrl-C or by the link, which leave the old firmware.
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "zelmorctl_fleet.h"

namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

std::vector<std::string> const kServer = {"--firmware-server", "127.0.0.1:7210"};

/// Runs `command` every half second until `done` holds for its result; at
/// most 40 times.
template <class Predicate>
bool runUntil(std::vector<std::string> const& command, Predicate done) {
    for (int i = 0; i < 40; ++i) {
        if (done(zelmorctl(command))) return true;
        std::this_thread::sleep_for(500ms);
    }
    return false;
}

std::string firmwareOf(ProgramRun const& info) {
    return info.status == 0 ? jsonLines(info).at(0)["firmware"].get<std::string>() : "";
}

TEST(ZelmorctlFirmware, UpdateFromTheServerRestartsTheDeviceIntoTheNewVersion) {
    SimFleet fleet({"--no-hub", "--history", "0", "--device", "V"});
    std::string const address = fleet.device(0).address;
    std::vector<std::string> update = {"--json", "--lan", address, "firmware", "update"};
    update.insert(update.end(), kServer.begin(), kServer.end());
    EXPECT_EQ(jsonResult(zelmorctl(update))["firmware"], "1.33");

    EXPECT_TRUE(runUntil({"--json", "--lan", address, "info"},
                         [](ProgramRun const& run) { return firmwareOf(run) == "1.33"; }));
    EXPECT_TRUE(runUntil({"--json", "scan", "--seconds", "2"}, [](ProgramRun const& run) {
        return run.status == 0 && !run.lines().empty() && jsonLines(run).at(0)["firmware"] == "1.33";
    }));
    // The server follows the device: the next file is one version up again.
    std::vector<std::string> check = {"--json", "--lan", address, "firmware", "check"};
    check.insert(check.end(), kServer.begin(), kServer.end());
    EXPECT_EQ(jsonResult(zelmorctl(check))["firmware"], "1.34");
}

TEST(ZelmorctlFirmware, CutTransfersLeaveTheOldFirmwareAndAUsableDevice) {
    struct Case {
        std::string name;
        std::string device;  // held-back answers give Ctrl-C time; a byte limit cuts the link
        bool interrupt;
        int status;
        std::string err;
    };
    std::vector<Case> const cases = {
        {"Ctrl-C", "K,delay-ms=400", true, 130, "Firmware update cancelled.\n"},
        {"link cut", "K,close-after=200", false, 3, "Device disconnected\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        SimFleet fleet({"--no-announce", "--no-hub", "--history", "0", "--device", c.device});
        std::string const address = fleet.device(0).address;
        std::vector<std::string> update = {"--lan", address, "firmware", "update"};
        update.insert(update.end(), kServer.begin(), kServer.end());
        ChildProcess transfer(ZELMORCTL_PATH, update);
        if (c.interrupt) {
            EXPECT_TRUE(runUntil({"--lan", address, "debug"}, [](ProgramRun const& run) {
                return run.out.find("firmware update started") != std::string::npos;
            }));
            transfer.signal(SIGINT);
        }
        EXPECT_EQ(transfer.wait(60s), c.status);
        EXPECT_EQ(transfer.takeErrors(), c.err);
        ProgramRun const info = zelmorctl({"--json", "--lan", address, "info"});
        EXPECT_EQ(firmwareOf(info), "1.32") << info.err;
    }
}

}  // namespace
