// zelmorctl's configuration commands against zelmor-sim: a file read with
// "config get --json", edited and written back, compared with the device and
// with the file before the edit; and a configuration the device window would
// refuse, which leaves the device as it was.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "factory_config.h"
#include "hex.h"
#include "zelmorctl_fleet.h"

namespace {

class ZelmorctlConfig : public testing::Test {
protected:
    ProgramRun run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--lan", fleet.device(0).address});
        return zelmorctl(arguments);
    }
    std::string deviceHex() const { return run({"config", "get", "--hex"}).out; }
    std::string write(std::string const& name, nlohmann::json const& json) const {
        std::ofstream(dir.file(name)) << json.dump(2);
        return dir.file(name);
    }

    SimFleet fleet{{"--no-announce", "--device", "V,serial=cab1"}};
    TempDirectory dir;
};

TEST_F(ZelmorctlConfig, AnEditedFileIsWrittenAndComparedFieldByField) {
    ProgramRun const get = run({"config", "get", "--json"});
    ASSERT_EQ(get.status, 0) << get.err;
    nlohmann::json edited = nlohmann::json::parse(get.out);
    EXPECT_EQ(jsonResult(run({"--json", "config", "get"}))["fields"], edited);
    std::string const original = write("a.json", edited);
    edited["lvdDisconnectThreshold"] = 11.75;
    std::string const changed = write("b.json", edited);

    ProgramRun const set = run({"config", "set", changed});
    EXPECT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(set.out, "Configuration written.\n");
    // Every byte as expected, the reserved ones included.
    ZelmorConfig expected = sim::factoryConfig(0x41);
    expected.lvdDisconnectThreshold(11.75);
    EXPECT_EQ(deviceHex(), hexEncode(expected.image().data(), expected.image().size()) + "\n");

    std::tuple<std::vector<std::string>, int, std::string> const rows[] = {
        {{"config", "diff", changed}, 0, ""},
        {{"config", "diff", original}, 1, "lvdDisconnectThreshold: 11.75 -> 11.5\n"},
        {{"config", "diff", original, changed}, 1, "lvdDisconnectThreshold: 11.5 -> 11.75\n"},
        {{"config", "diff", write("part.json", {{"lvdEnable", false}})}, 0, ""},
    };
    for (auto const& [arguments, status, out] : rows) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        ProgramRun const diff = run(arguments);
        EXPECT_EQ(diff.status, status) << diff.err;
        EXPECT_EQ(diff.out, out);
    }
}

TEST_F(ZelmorctlConfig, AnInvalidConfigurationLeavesTheDeviceAsItWas) {
    std::string const before = deviceHex();
    std::tuple<nlohmann::json, int, std::string> const rows[] = {
        {{{"fuelGaugeCellCount", 9}}, 1, "Battery Cell Count should be between 1 and 6\n"},
        {{{"fuelGaugeCellCount", 4.5}}, 2, "fuelGaugeCellCount: 4.5 is not a multiple of 1\n"},
    };
    for (auto const& [json, status, err] : rows) {
        SCOPED_TRACE(json.dump());
        ProgramRun const set = run({"config", "set", write("bad.json", json)});
        EXPECT_EQ(set.status, status);
        EXPECT_TRUE(set.err.ends_with(err)) << set.err;
        EXPECT_EQ(deviceHex(), before);
    }
}

}  // namespace
