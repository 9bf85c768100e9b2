// A served device acting on the configuration zelmorctl writes to it over the
// LAN: the low-voltage cut-off, and the logging mode's pace. The device runs
// on a clock the test moves, so every wait is an exact number of seconds.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>

#include "config_choices.h"
#include "device_server.h"
#include "hex.h"
#include "simulated_device.h"
#include "zelmor_config.h"
#include "zelmorctl_fleet.h"

namespace {

using Json = nlohmann::json;

constexpr char const* kAddress = "127.0.0.43";

/// A Zelmor-V without history on kAddress, reached with zelmorctl.
class ConfiguredDevice : public testing::Test {
protected:
    ConfiguredDevice() { EXPECT_TRUE(server.start()) << server.error(); }

    static sim::SimulatedDeviceConfig deviceConfig(std::atomic<int64_t> const& clock) {
        sim::SimulatedDeviceConfig config;
        config.clock = [&clock] { return clock.load(); };
        return config;
    }

    ProgramRun run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--json", "--lan", kAddress});
        return zelmorctl(arguments);
    }

    /// The device's configuration with every cut-off and the generator off.
    ZelmorConfig quietConfig() const {
        auto const bytes = hexDecode(jsonResult(run({"config", "get"}))["config"].get<std::string>());
        EXPECT_TRUE(bytes && bytes->size() == ZelmorConfig::kSize);
        ZelmorConfig config;
        if (bytes) std::copy(bytes->begin(), bytes->end(), config.image().begin());
        for (ConfigKey key : {ConfigKey::lvdEnable, ConfigKey::hvdEnable, ConfigKey::ocdEnable, ConfigKey::ltdEnable,
                              ConfigKey::htdEnable, ConfigKey::disconnectOnSoc, ConfigKey::generatorEnable})
            config.setRaw(key, 0);
        config.relayConnectFilter(0);
        return config;
    }

    void write(ZelmorConfig const& config) const {
        std::ofstream(dir.file("config.hex")) << hexEncode(config.image().data(), config.image().size());
        EXPECT_EQ(jsonResult(run({"config", "set", dir.file("config.hex")}))["ok"], true);
    }

    size_t logRecords() const {
        ProgramRun const list = run({"log", "list"});
        EXPECT_EQ(list.status, 0) << list.err;
        size_t records = 0;
        for (Json const& file : jsonLines(list)) records += file["records"].get<size_t>();
        return records;
    }

    std::atomic<int64_t> now{1'790'000'000};
    sim::SimulatedDevice device{deviceConfig(now)};
    sim::DeviceServer server{device, kAddress};
    TempDirectory dir;
};

// The cut-off sits above the battery's voltage until the thresholds come down
// again: disconnecting alone does not reconnect, the connect threshold does.
TEST_F(ConfiguredDevice, LowVoltageCutOffOpensAfterItsFilterAndClosesAtTheConnectThreshold) {
    struct Step {
        char const* what;
        std::function<void(ZelmorConfig&)> change;
        int64_t seconds;
        char const* status;
    };
    Step const steps[] = {
        {"cut-off above the battery",
         [](ZelmorConfig& c) {
             c.lvdEnable(true);
             c.lvdUseVoltage2(false);
             c.lvdDisconnectThreshold(20);
             c.lvdConnectThreshold(20.5);
             c.lvdDisconnectFilter(5000);
         },
         4, "ON"},
        {"filter elapsed", nullptr, 2, "LVD"},
        {"below the disconnect threshold, under the connect one", [](ZelmorConfig& c) { c.lvdDisconnectThreshold(5); },
         3, "LVD"},
        {"connect threshold below the battery", [](ZelmorConfig& c) { c.lvdConnectThreshold(6); }, 1, "ON"},
    };
    ASSERT_EQ(jsonResult(run({"power", "on"}))["power"], "on");
    ZelmorConfig config = quietConfig();
    for (Step const& step : steps) {
        SCOPED_TRACE(step.what);
        if (step.change) {
            step.change(config);
            write(config);
        }
        now += step.seconds;
        Json const reading = jsonResult(run({"monitor", "--count", "1"}));
        EXPECT_EQ(reading["power_status"], step.status);
    }
}

TEST_F(ConfiguredDevice, LoggingModeSetsHowFastTheLogGrows) {
    struct Case {
        char const* mode;
        size_t recordsPerMinute;
    };
    ZelmorConfig config = quietConfig();
    for (Case const c : {Case{"Every second", 60}, Case{"Every 10 seconds", 6}, Case{"Disabled", 0}}) {
        SCOPED_TRACE(c.mode);
        auto const& modes = configChoices(ConfigKey::dataLoggingMode);
        config.dataLoggingMode(static_cast<uint8_t>(std::find(modes.begin(), modes.end(), c.mode) - modes.begin()));
        write(config);
        size_t const before = logRecords();
        now += 60;
        EXPECT_EQ(logRecords() - before, c.recordsPerMinute);
    }
}

}  // namespace
