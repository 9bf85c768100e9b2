// The configuration as JSON: exact decimals, a whole configuration back into
// an image, and what a file may not say.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "config_choices.h"
#include "config_json.h"
#include "factory_config.h"

namespace {

TEST(ConfigJsonTest, EveryMillivoltReadsBackExactly) {
    ZelmorConfig config;
    for (int32_t raw = 0; raw <= 65535; ++raw) {
        config.setRaw(ConfigKey::lvdConnectThreshold, raw);
        std::string const text = configFieldToJson(config, ConfigKey::lvdConnectThreshold).dump();
        ZelmorConfig back;
        ASSERT_EQ(applyConfigJson(back, ConfigJson::parse("{\"lvdConnectThreshold\":" + text + "}")), std::nullopt);
        ASSERT_EQ(back.raw(ConfigKey::lvdConnectThreshold), raw) << text;
        ASSERT_LE(text.size(), 6u) << text;
    }
}

TEST(ConfigJsonTest, AWholeConfigurationGivesBackTheImageAndKeepsReservedBytes) {
    ZelmorConfig const factory = sim::factoryConfig(0x41);
    ConfigJson const json = ConfigJson::parse(configToJson(factory).dump());
    EXPECT_EQ(json["lvdDisconnectThreshold"].dump(), "11.5");
    EXPECT_EQ(json["shunt"], "500 A / 50 mV (integrated)");
    EXPECT_EQ(json["dataLoggingMode"], "Every 60 seconds");
    ZelmorConfig blank;
    blank.image()[36] = factory.image()[36] & 0xFE;
    std::copy(factory.image().begin() + 100, factory.image().end(), blank.image().begin() + 100);
    ASSERT_NE(blank.image()[36], 0);
    EXPECT_EQ(applyConfigJson(blank, json), std::nullopt);
    EXPECT_EQ(blank, factory);
}

TEST(ConfigJsonTest, RefusalsNameTheFieldAndChangeNothing) {
    std::pair<char const*, char const*> const rows[] = {
        {R"([1])", "The configuration must be a JSON object"},
        {R"({"lvdEnable": true, "lvdVolts": 12})", "lvdVolts: no such field"},
        {R"({"lvdEnable": 1})", "lvdEnable: must be true or false"},
        {R"({"lvdDisconnectThreshold": "11.5"})", "lvdDisconnectThreshold: must be a number"},
        {R"({"lvdDisconnectThreshold": 12.3456})", "lvdDisconnectThreshold: 12.3456 is not a multiple of 0.001"},
        {R"({"fuelGaugeCapacity": 100.5})", "fuelGaugeCapacity: 100.5 is not a multiple of 1"},
        {R"({"autoOffMinutes": 60})", "autoOffMinutes: 60 is outside 0 to 59"},
        {R"({"ltdDisconnectThreshold": -129})", "ltdDisconnectThreshold: -129 is outside -128 to 127"},
        {R"({"dataLoggingMode": "Every 3 seconds"})", "dataLoggingMode: \"Every 3 seconds\" is not one of the choices"},
        {R"({"shunt": "400 A / 75 mV"})", "shunt: \"400 A / 75 mV\" is not one of the choices"},
        {R"({"mfTerminalFunction": 4})", "mfTerminalFunction: 4 is not a choice"},
        {R"({"timeZone": "Europe/Atlantis"})", "timeZone: \"Europe/Atlantis\" is not a time zone this system knows"},
        {R"({"timeZone": 5})", "timeZone: must be a string"},
    };
    for (auto const& [text, message] : rows) {
        SCOPED_TRACE(text);
        ZelmorConfig config = sim::factoryConfig(0x41);
        EXPECT_EQ(applyConfigJson(config, ConfigJson::parse(text)), message);
        EXPECT_EQ(config, sim::factoryConfig(0x41));
    }
}

TEST(ConfigJsonTest, DiffListsTheChangedFieldsOnly) {
    ZelmorConfig const before = sim::factoryConfig(0x41);
    ZelmorConfig after = before;
    after.shunt(kNoShunt);
    after.fullChargeCurrent(2.5);
    after.image()[101] ^= 0xFF;
    auto const differences = configDiff(before, after);
    ASSERT_EQ(differences.size(), 2u);
    EXPECT_EQ(differences[0].name, "shunt");
    EXPECT_EQ(differences[0].after, nullptr);
    EXPECT_EQ(differences[1].name, "fullChargeCurrent");
    EXPECT_EQ(differences[1].before.dump() + " " + differences[1].after.dump(), "2.0 2.5");
}

}  // namespace
