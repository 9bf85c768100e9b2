// A served device acting on the configuration zelmorctl writes to it over the
// LAN: the low-voltage cut-off, and the logging mode's pace. The device runs
// on a clock the test moves, so every wait is an exact number of seconds.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <utility>

#include "device_server.h"
#include "hex.h"
#include "log_record.h"
#include "simulated_device.h"
#include "zelmor_config.h"
#include "zelmorctl_fleet.h"

namespace {

using Fields = std::vector<std::pair<ConfigKey, double>>;
using enum ConfigKey;

constexpr char const* kAddress = "127.0.0.43";

/// A Zelmor-V without history on kAddress, reached with zelmorctl, its relay
/// switched on and every cut-off and the generator control off.
class ConfiguredDevice : public testing::Test {
protected:
    ConfiguredDevice() {
        EXPECT_TRUE(server.start()) << server.error();
        EXPECT_EQ(result({"power", "on"})["power"], "on");
        auto const bytes = hexDecode(result({"config", "get"})["config"].get<std::string>());
        if (bytes && bytes->size() == ZelmorConfig::kSize)
            std::copy(bytes->begin(), bytes->end(), config.image().begin());
        write({{lvdEnable, 0},
               {hvdEnable, 0},
               {ocdEnable, 0},
               {ltdEnable, 0},
               {htdEnable, 0},
               {disconnectOnSoc, 0},
               {generatorEnable, 0},
               {relayConnectFilter, 0}});
    }

    static sim::SimulatedDeviceConfig clocked(std::atomic<int64_t> const& clock) {
        sim::SimulatedDeviceConfig config;
        config.clock = [&clock] { return clock.load(); };
        return config;
    }

    nlohmann::json result(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--json", "--lan", kAddress});
        return jsonResult(zelmorctl(arguments));
    }

    void write(Fields const& fields) {
        for (auto const& field : fields) config.setValue(field.first, field.second);
        std::ofstream(dir.file("config.hex")) << hexEncode(config.image().data(), config.image().size());
        EXPECT_EQ(result({"config", "set", dir.file("config.hex")})["ok"], true);
    }

    size_t logRecords() const {
        ProgramRun const list = zelmorctl({"--json", "--lan", kAddress, "log", "list"});
        size_t records = 0;
        for (nlohmann::json const& file : jsonLines(list)) records += file["records"].get<size_t>();
        return records;
    }

    std::atomic<int64_t> now{1'790'000'000};
    sim::SimulatedDevice device{clocked(now)};
    sim::DeviceServer server{device, kAddress};
    TempDirectory dir;
    ZelmorConfig config;
};

// The cut-off sits above the battery's voltage until the thresholds come down
// again: no longer below the disconnect threshold is not enough, the connect
// threshold closes the relay.
TEST_F(ConfiguredDevice, LowVoltageCutOffOpensAfterItsFilterAndClosesAtTheConnectThreshold) {
    struct Step {
        Fields changes;
        int64_t seconds;
        char const* status;
    };
    Step const steps[] = {
        {{{lvdEnable, 1}, {lvdDisconnectThreshold, 20}, {lvdConnectThreshold, 20.5}, {lvdDisconnectFilter, 5000}},
         4,
         "ON"},
        {{}, 2, "LVD"},
        {{{lvdDisconnectThreshold, 5}}, 3, "LVD"},
        {{{lvdConnectThreshold, 6}}, 1, "ON"},
    };
    for (Step const& step : steps) {
        SCOPED_TRACE(step.seconds);
        if (!step.changes.empty()) write(step.changes);
        now += step.seconds;
        EXPECT_EQ(result({"monitor", "--count", "1"})["power_status"], step.status);
    }
}

// Modes 1, 4 and 0: "Every second", "Every 10 seconds", "Disabled".
TEST_F(ConfiguredDevice, LoggingModeSetsHowFastTheLogGrows) {
    for (auto const& [mode, perMinute] : {std::pair(1, 60u), std::pair(4, 6u), std::pair(0, 0u)}) {
        SCOPED_TRACE(mode);
        write({{dataLoggingMode, mode}});
        size_t const before = logRecords();
        now += 60;
        EXPECT_EQ(logRecords() - before, perMinute);
    }
}

// The log's records carry the wall clock of the configured zone; the live
// data's clock stays UTC.
TEST_F(ConfiguredDevice, LogIsStampedWithTheZonesWallClock) {
    for (auto const& [zone, offset] : {std::pair("Asia/Kolkata", 19800), std::pair("UTC", 0)}) {
        SCOPED_TRACE(zone);
        config.timeZone(zone);
        write({{dataLoggingMode, 1}});
        now += 10;
        EXPECT_EQ(result({"monitor", "--count", "1"})["time"], now.load());
        logRecords();
        std::vector<LogRecord> records;
        auto const files = device.logFiles();
        ASSERT_FALSE(files.empty());
        auto const bytes = device.logFile(files.back().id);
        decodeLogRecords(device.snapshot().hardwareRevision, bytes.data(), bytes.size(), records);
        ASSERT_FALSE(records.empty());
        EXPECT_EQ(int64_t{records.back().time}, now.load() + offset);
    }
}

}  // namespace
