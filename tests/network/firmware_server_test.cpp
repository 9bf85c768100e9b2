// The simulator's firmware file server as zelmorctl finds it: what each mode
// offers the device, and how a check ends when the server cannot help.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zelmorctl_fleet.h"

namespace {

TEST(FirmwareServer, CheckTellsWhatTheServerOffersTheDevice) {
    struct Case {
        std::string mode;
        int status;
        std::string out;  // the first line of standard output
        std::string err;  // the start of standard error
    };
    std::string const url = "http://127.0.0.1:7210/fwup/zlmrk/zlmrk_fw_dfu_from_0132.bin";
    std::string const none = "No firmware update is available at the moment";
    std::vector<Case> const cases = {
        {"newer", 0, "Firmware 1.33 is available (the device runs 1.32).", ""},
        {"equal", 0, none, ""},
        {"older", 0, none, ""},
        {"404", 0, none, ""},
        {"corrupt", 1, "", "The file at " + url + " is not a firmware update for Zelmor-K (0x10)"},
        {"none", 1, "", "Cannot download " + url + ": "},
        {"stall", 1, "", "Cannot download " + url + ": "},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.mode);
        SimFleet fleet({"--no-announce", "--no-hub", "--history", "0", "--device", "K", "--firmware", c.mode});
        // A short time-out, so that the stalled body ends the check soon.
        ProgramRun const run = zelmorctl({"--lan", fleet.device(0).address, "firmware", "check"},
                                         {"ZELMOR_FIRMWARE_SERVER=127.0.0.1:7210", "ZELMOR_FIRMWARE_TIMEOUT_MS=1500"});
        EXPECT_EQ(run.status, c.status) << run.err;
        EXPECT_EQ(run.lines().empty() ? "" : run.lines().front(), c.out);
        EXPECT_EQ(run.err.substr(0, c.err.size()), c.err);
    }
}

TEST(FirmwareServer, TheOptionWinsOverTheVariableAndWithoutEitherNoUpdateIsLookedFor) {
    SimFleet fleet(
        {"--no-announce", "--no-hub", "--history", "0", "--device", "V", "--firmware-server", "127.0.0.1:7300"});
    struct Case {
        std::vector<std::string> arguments;
        std::vector<std::string> environment;
        int status;
        nlohmann::json firmware;
    };
    std::vector<Case> const cases = {
        {{"--firmware-server", "127.0.0.1:7300"}, {"ZELMOR_FIRMWARE_SERVER=127.0.0.1:9"}, 0, "1.33"},
        {{}, {"ZELMOR_FIRMWARE_SERVER=127.0.0.1:7300"}, 0, "1.33"},
        {{}, {"ZELMOR_FIRMWARE_SERVER="}, 0, nullptr},
        {{"--firmware-server", "127.0.0.1:70000"}, {}, 2, nullptr},
        {{}, {"ZELMOR_FIRMWARE_SERVER=http://127.0.0.1"}, 2, nullptr},
    };
    for (Case const& c : cases) {
        std::vector<std::string> arguments = {"--json", "--lan", fleet.device(0).address, "firmware", "check"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        SCOPED_TRACE(testing::PrintToString(arguments) + testing::PrintToString(c.environment));
        ProgramRun const run = zelmorctl(arguments, c.environment);
        EXPECT_EQ(run.status, c.status) << run.err;
        if (c.status == 0) {
            EXPECT_EQ(jsonResult(run)["firmware"], c.firmware);
        }
    }
}

}  // namespace
