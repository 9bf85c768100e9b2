// The configuration dialog's rules as plain functions: the fields a model
// shows, the enabling between boxes and fields, and the number texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "config_dialog_rules.h"

namespace {

using K = ConfigKey;

constexpr uint8_t kLan = 0x10, kBluetooth = 0x20, kSingleVoltage = 0x30, kWifi = 0x41;

ZelmorConfig withFlags(std::vector<ConfigKey> const& on) {
    ZelmorConfig config;
    for (ConfigKey key : on) config.setRaw(key, 1);
    return config;
}

TEST(ConfigDialogRulesTest, EveryFieldHasOneRow) {
    std::map<ConfigKey, int> rows;
    for (ConfigPage const& page : configPages())
        for (ConfigRow const& row : page.rows) ++rows[row.key];
    EXPECT_EQ(rows.size(), kConfigFieldCount);
    for (auto const& [key, count] : rows) EXPECT_EQ(count, 1) << configField(key).name;
}

TEST(ConfigDialogRulesTest, ModelsShowTheFieldsTheyHaveAUseFor) {
    struct Case {
        ConfigKey key;
        std::vector<uint8_t> shownOn;
    };
    std::vector<uint8_t> const all = {kLan, kBluetooth, kSingleVoltage, kWifi};
    Case const cases[] = {
        {K::disableVoltage2, {kLan, kBluetooth, kWifi}},
        {K::useVoltage2ForPower, {kLan, kBluetooth, kWifi}},
        {K::lvdUseVoltage2, {kLan, kBluetooth, kWifi}},
        {K::keepEthernetLedOn, {kLan}},
        {K::keepAccessPointOn, {kWifi}},
        {K::wifiWatchdog, {kWifi}},
        {K::useWithoutInternet, {kLan, kWifi}},
        {K::relayOnAtStartup, all},
        {K::lvdEnable, all},
    };
    for (Case const& c : cases)
        for (uint8_t revision : all) {
            SCOPED_TRACE(std::string(configField(c.key).name) + " on " + std::to_string(revision));
            bool const expected = std::find(c.shownOn.begin(), c.shownOn.end(), revision) != c.shownOn.end();
            EXPECT_EQ(configFieldShown(c.key, revision, ZelmorConfig()), expected);
        }
    for (uint8_t revision : all) {
        for (ConfigPage const& page : configPages())
            EXPECT_EQ(configPageShown(page, revision), page.title != "Network" || revision == kLan || revision == kWifi)
                << page.title << " on " << int{revision};
    }
}

TEST(ConfigDialogRulesTest, GeneratorControlTakesOverTheFiveDisconnectEnables) {
    std::vector<ConfigKey> const five = {K::lvdEnable, K::hvdEnable, K::ocdEnable, K::ltdEnable, K::htdEnable};
    ZelmorConfig config = withFlags(
        {K::lvdEnable, K::hvdEnable, K::ocdEnable, K::ltdEnable, K::htdEnable, K::autoOffEnable, K::fuelGaugeEnable});
    config.generatorEnable(true);
    applyGeneratorControl(config);
    for (ConfigKey key : five) {
        SCOPED_TRACE(configField(key).name);
        EXPECT_FALSE(config.raw(key));
        EXPECT_FALSE(configFieldShown(key, kLan, config));
    }
    EXPECT_TRUE(config.autoOffEnable() && config.fuelGaugeEnable());
}

TEST(ConfigDialogRulesTest, FieldsFollowTheBoxesTheyDependOn) {
    struct Case {
        std::vector<ConfigKey> checked;
        ConfigKey key;
        bool enabled;
    };
    Case const cases[] = {
        {{}, K::lvdDisconnectThreshold, false},
        {{K::lvdEnable}, K::lvdDisconnectThreshold, true},
        {{K::lvdEnable}, K::hvdConnectThreshold, false},
        {{}, K::maxShuntCurrent, true},
        {{K::autoOnEnable}, K::autoOffMinutes, false},
        {{K::autoOnEnable}, K::autoOnMinutes, true},
        {{K::fuelGaugeEnable}, K::fullChargeVoltage, false},
        {{K::fuelGaugeEnable, K::manualFullChargeDetection}, K::fullChargeVoltage, true},
        {{K::manualFullChargeDetection}, K::fullChargeVoltage, false},
        {{K::fuelGaugeEnable, K::disconnectOnSoc}, K::disconnectSocThreshold, true},
        {{K::fuelGaugeEnable, K::disconnectOnSoc}, K::reconnectSocThreshold, false},
        {{K::generatorEnable}, K::generatorOnBySoc, true},
        {{K::generatorEnable}, K::generatorOnSoc, false},
        {{K::generatorEnable, K::generatorOffByVoltage}, K::generatorOffVoltage, true},
        {{K::generatorOffByVoltage}, K::generatorOffVoltage, false},
        {{K::fuelGaugeEnable}, K::chargeManagerCellCount, false},
        {{K::chargeManagerEnable}, K::chargeManagerCellCount, true},
        {{K::chargeManagerEnable}, K::fuelGaugeCellCount, false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(configField(c.key).name) + " with " + std::to_string(c.checked.size()) + " boxes");
        EXPECT_EQ(configFieldEnabled(c.key, withFlags(c.checked)), c.enabled);
    }
}

TEST(ConfigDialogRulesTest, NumbersAreWrittenAndReadInTheirFieldsUnits) {
    ZelmorConfig config;
    config.lvdDisconnectThreshold(11.8);
    config.fullChargeCurrent(2.5);
    config.ocdTripThreshold(150.5);
    config.ltdDisconnectThreshold(-5);
    config.fuelGaugeCapacity(200);
    struct Shown {
        ConfigKey key;
        char const* text;
    };
    for (Shown const& s : {Shown{K::lvdDisconnectThreshold, "11.800"}, Shown{K::fullChargeCurrent, "2.500"},
                           Shown{K::ocdTripThreshold, "150.5"}, Shown{K::ltdDisconnectThreshold, "-5.0"},
                           Shown{K::fuelGaugeCapacity, "200.0"}, Shown{K::relayConnectFilter, "0.0"}})
        EXPECT_EQ(configNumberText(config, s.key), s.text) << configField(s.key).name;

    struct Typed {
        ConfigKey key;
        char const* text;
        std::optional<double> value;  // none: refused
    };
    Typed const typed[] = {
        {K::lvdDisconnectThreshold, " 12,25 ", 12.25}, {K::lvdDisconnectThreshold, "+12.2504", 12.25},
        {K::lvdDisconnectThreshold, "65.535", 65.535}, {K::lvdDisconnectThreshold, "65.536", std::nullopt},
        {K::ltdDisconnectThreshold, "-20", -20},       {K::ltdDisconnectThreshold, "-129", std::nullopt},
        {K::autoOffMinutes, "60", std::nullopt},       {K::fuelGaugeCapacity, "", std::nullopt},
        {K::fuelGaugeCapacity, "1e3", std::nullopt},   {K::fuelGaugeCapacity, "1,000.0", std::nullopt},
        {K::fuelGaugeCapacity, "nan", std::nullopt},
    };
    for (Typed const& t : typed) {
        SCOPED_TRACE(std::string(configField(t.key).name) + " '" + t.text + "'");
        ZelmorConfig edited = config;
        auto const problem = setConfigNumber(edited, t.key, t.text, "Label (V)", "Page");
        if (t.value) {
            EXPECT_FALSE(problem);
            EXPECT_DOUBLE_EQ(edited.value(t.key), *t.value);
        } else {
            EXPECT_EQ(edited, config);
            EXPECT_TRUE(problem && problem->starts_with("\"Label (V)\" on page \"Page\" should be a number from "));
        }
    }
    EXPECT_EQ(
        setConfigNumber(config, K::ltdConnectThreshold, "x", "LTD Connect Threshold (V)", "Low Temperature Disconnect"),
        "\"LTD Connect Threshold (V)\" on page \"Low Temperature Disconnect\" should be a number from -128 to "
        "127");
}

}  // namespace
