// The relay's rules fed measurements over time: each cut-off's threshold and
// filter, what clears it, the connect delay, the second voltage, the user's
// switch, and the generator control.
#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "protection_rules.h"

namespace {

using sim::PowerStatus;
using sim::ProtectionInputs;
using Fields = std::vector<std::pair<ConfigKey, double>>;
using enum ConfigKey;

constexpr double kNone = NAN;
constexpr PowerStatus kOn = PowerStatus::On;
constexpr PowerStatus kLvd = PowerStatus::LowVoltage;

ProtectionInputs volts(double voltage1, double voltage2 = kNone) { return {voltage1, voltage2, -5, 20, 60}; }
ProtectionInputs amps(double current) { return {13, kNone, current, 20, 60}; }
ProtectionInputs celsius(double temperature) { return {13, kNone, -5, temperature, 60}; }
ProtectionInputs percent(double stateOfCharge) { return {13, kNone, 30, 20, stateOfCharge}; }

Fields const kLvdAt12 = {
    {lvdEnable, 1}, {lvdDisconnectThreshold, 12}, {lvdConnectThreshold, 12.8}, {lvdDisconnectFilter, 2000}};

Fields with(Fields fields, Fields const& more) {
    fields.insert(fields.end(), more.begin(), more.end());
    return fields;
}

ZelmorConfig configOf(Fields const& fields) {
    ZelmorConfig config;
    for (auto const& field : fields) config.setValue(field.first, field.second);
    return config;
}

struct Step {
    int64_t ms;
    ProtectionInputs in;
    PowerStatus expected;
};

TEST(SimProtectionRules, CutOffsTripAfterTheirFilterAndClearAsConfigured) {
    struct Case {
        char const* name;
        Fields fields;
        std::vector<Step> steps;
    };
    Case const cases[] = {
        {"low voltage",
         kLvdAt12,
         {{0, volts(12.5), kOn},
          {1000, volts(11.9), kOn},
          {2999, volts(11.9), kOn},
          {3000, volts(11.9), kLvd},
          {4000, volts(12.7), kLvd},
          {5000, volts(12.8), kOn}}},
        {"a lapse starts the filter again",
         kLvdAt12,
         {{0, volts(11.9), kOn},
          {1500, volts(12.1), kOn},
          {2500, volts(11.9), kOn},
          {4499, volts(11.9), kOn},
          {4500, volts(11.9), kLvd}}},
        {"disabled", with(kLvdAt12, {{lvdEnable, 0}}), {{0, volts(5), kOn}, {60000, volts(5), kOn}}},
        {"second voltage",
         with(kLvdAt12, {{lvdUseVoltage2, 1}}),
         {{0, volts(13, 11.5), kOn}, {2000, volts(13, 11.5), kLvd}, {3000, volts(11.5, 13), kOn}}},
        {"first voltage without a second",
         with(kLvdAt12, {{lvdUseVoltage2, 1}}),
         {{0, volts(13), kOn}, {6000, volts(11.5), kOn}, {8000, volts(11.5), kLvd}}},
        {"connect filter",
         with(kLvdAt12, {{relayConnectFilter, 3000}}),
         {{0, volts(11), kOn},
          {2000, volts(11), kLvd},
          {3000, volts(13), kLvd},
          {5999, volts(13), kLvd},
          {6000, volts(13), kOn}}},
        {"high voltage",
         {{hvdEnable, 1}, {hvdDisconnectThreshold, 14.6}, {hvdConnectThreshold, 14}},
         {{0, volts(14.6), kOn},
          {500, volts(14.7), PowerStatus::HighVoltage},
          {1000, volts(14.1), PowerStatus::HighVoltage},
          {2000, volts(14), kOn}}},
        {"over-current stays",
         {{ocdEnable, 1}, {ocdTripThreshold, 50}, {ocdTripFilter, 500}},
         {{0, amps(-60), kOn}, {500, amps(-60), PowerStatus::OverCurrent}, {60000, amps(0), PowerStatus::OverCurrent}}},
        {"cold and heat",
         {{ltdEnable, 1},
          {ltdConnectThreshold, 5},
          {htdEnable, 1},
          {htdDisconnectThreshold, 45},
          {htdConnectThreshold, 40}},
         {{0, celsius(-1), PowerStatus::LowTemperature},
          {1000, celsius(4), PowerStatus::LowTemperature},
          {2000, celsius(5), kOn},
          {3000, celsius(46), PowerStatus::HighTemperature},
          {4000, celsius(40), kOn}}},
        {"state of charge",
         {{disconnectOnSoc, 1}, {disconnectSocThreshold, 20}, {reconnectOnSoc, 1}, {reconnectSocThreshold, 30}},
         {{0, percent(20), PowerStatus::FuelGauge},
          {1000, percent(29), PowerStatus::FuelGauge},
          {2000, percent(30), kOn}}},
        {"generator",
         {{generatorEnable, 1},
          {generatorOnByVoltage, 1},
          {generatorOnVoltage, 12.2},
          {generatorOnVoltageFilter, 1000},
          {generatorOffBySoc, 1},
          {generatorOffSoc, 90},
          {generatorOffDelay, 2}},
         {{0, volts(12.1), PowerStatus::Off},
          {1000, volts(12.1), kOn},
          {2000, percent(90), kOn},
          {3999, percent(90), kOn},
          {4000, percent(90), PowerStatus::Off}}},
        {"generator stops at its voltage, not on a voltage it does not watch",
         {{generatorEnable, 1}, {generatorOnByVoltage, 1}, {generatorOnVoltage, 12.2}, {generatorOffVoltage, 13.5}},
         {{0, volts(12.1), kOn}, {1000, volts(13.6), kOn}, {2000, volts(13.6), kOn}}},
        {"generator not started by a state of charge it does not watch",
         {{generatorEnable, 1}, {generatorOnSoc, 50}},
         {{0, percent(40), PowerStatus::Off}}},
        {"generator stops at its voltage",
         {{generatorEnable, 1},
          {generatorOnByVoltage, 1},
          {generatorOnVoltage, 12.2},
          {generatorOffByVoltage, 1},
          {generatorOffVoltage, 13.5}},
         {{0, volts(12.1), kOn}, {1000, volts(13.4), kOn}, {2000, volts(13.5), PowerStatus::Off}}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        sim::ProtectionRules rules(configOf(c.fields), true);
        for (Step const& step : c.steps) {
            rules.update(step.ms, step.in);
            EXPECT_EQ(rules.powerStatus(), step.expected) << step.ms;
            EXPECT_EQ(rules.outputOn(), step.expected == kOn) << step.ms;
        }
    }
}

// The switch overrides the cut-offs both ways; the coil follows the output
// unless the relay logic is inverted.
TEST(SimProtectionRules, TheUserSwitchClearsCutOffsAndTheCoilMayBeInverted) {
    sim::ProtectionRules rules(configOf(with(kLvdAt12, {{invertRelayLogic, 1}})), false);
    rules.update(0, volts(11));
    EXPECT_EQ(std::pair(rules.powerStatus(), rules.coilEnergised()), std::pair(PowerStatus::Off, true));
    rules.switchRelay(true);
    EXPECT_EQ(std::pair(rules.powerStatus(), rules.coilEnergised()), std::pair(kOn, false));
    rules.update(1000, volts(11));
    rules.update(3000, volts(11));
    EXPECT_EQ(rules.powerStatus(), kLvd);
    rules.switchRelay(false);
    rules.update(4000, volts(13));
    EXPECT_EQ(rules.powerStatus(), PowerStatus::Off);
}

}  // namespace
