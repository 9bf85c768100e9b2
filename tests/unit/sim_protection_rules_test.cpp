// The relay's rules fed measurements over time: each cut-off's threshold and
// filter, what clears it, the connect delay, the second voltage, the user's
// switch, and the generator control.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "protection_rules.h"

namespace {

using sim::PowerStatus;
using sim::ProtectionInputs;

constexpr double kNoVoltage2 = NAN;

struct Step {
    int64_t ms;
    ProtectionInputs in;
    PowerStatus expected;
};

ProtectionInputs volts(double voltage1, double voltage2 = kNoVoltage2) { return {voltage1, voltage2, -5, 20, 60}; }
ProtectionInputs amps(double current) { return {13, kNoVoltage2, current, 20, 60}; }
ProtectionInputs celsius(double temperature) { return {13, kNoVoltage2, -5, temperature, 60}; }
ProtectionInputs percent(double stateOfCharge) { return {13, kNoVoltage2, -5, 20, stateOfCharge}; }

void lvd(ZelmorConfig& c) {
    c.lvdEnable(true);
    c.lvdDisconnectThreshold(12.0);
    c.lvdConnectThreshold(12.8);
    c.lvdDisconnectFilter(2000);
}

struct Case {
    char const* name;
    std::function<void(ZelmorConfig&)> setup;
    std::vector<Step> steps;
};

constexpr PowerStatus kOn = PowerStatus::On;
constexpr PowerStatus kLvd = PowerStatus::LowVoltage;

TEST(SimProtectionRules, CutOffsTripAfterTheirFilterAndClearAsConfigured) {
    Case const cases[] = {
        {"low voltage",
         lvd,
         {{0, volts(12.5), kOn},
          {1000, volts(11.9), kOn},
          {2999, volts(11.9), kOn},
          {3000, volts(11.9), kLvd},
          {4000, volts(12.7), kLvd},
          {5000, volts(12.8), kOn}}},
        {"a cause that lapses starts its filter again",
         lvd,
         {{0, volts(11.9), kOn},
          {1500, volts(12.1), kOn},
          {2500, volts(11.9), kOn},
          {4499, volts(11.9), kOn},
          {4500, volts(11.9), kLvd}}},
        {"disabled",
         [](ZelmorConfig& c) {
             lvd(c);
             c.lvdEnable(false);
         },
         {{0, volts(5), kOn}, {60000, volts(5), kOn}}},
        {"on the second voltage",
         [](ZelmorConfig& c) {
             lvd(c);
             c.lvdUseVoltage2(true);
         },
         {{0, volts(13, 11.5), kOn}, {2000, volts(13, 11.5), kLvd}, {3000, volts(11.5, 13), kOn}}},
        {"the first voltage where there is no second",
         [](ZelmorConfig& c) {
             lvd(c);
             c.lvdUseVoltage2(true);
         },
         {{0, volts(13), kOn}, {5000, volts(13), kOn}, {6000, volts(11.5), kOn}, {8000, volts(11.5), kLvd}}},
        {"the connect filter delays the reconnect",
         [](ZelmorConfig& c) {
             lvd(c);
             c.relayConnectFilter(3000);
         },
         {{0, volts(11), kOn},
          {2000, volts(11), kLvd},
          {3000, volts(13), kLvd},
          {5999, volts(13), kLvd},
          {6000, volts(13), kOn}}},
        {"high voltage",
         [](ZelmorConfig& c) {
             c.hvdEnable(true);
             c.hvdDisconnectThreshold(14.6);
             c.hvdConnectThreshold(14.0);
         },
         {{0, volts(14.7), PowerStatus::HighVoltage},
          {1000, volts(14.1), PowerStatus::HighVoltage},
          {2000, volts(14.0), kOn}}},
        {"over-current stays until switched on",
         [](ZelmorConfig& c) {
             c.ocdEnable(true);
             c.ocdTripThreshold(50);
             c.ocdTripFilter(500);
         },
         {{0, amps(-60), kOn}, {500, amps(-60), PowerStatus::OverCurrent}, {60000, amps(0), PowerStatus::OverCurrent}}},
        {"cold and heat",
         [](ZelmorConfig& c) {
             c.ltdEnable(true);
             c.ltdDisconnectThreshold(0);
             c.ltdConnectThreshold(5);
             c.htdEnable(true);
             c.htdDisconnectThreshold(45);
             c.htdConnectThreshold(40);
         },
         {{0, celsius(-1), PowerStatus::LowTemperature},
          {1000, celsius(4), PowerStatus::LowTemperature},
          {2000, celsius(5), kOn},
          {3000, celsius(46), PowerStatus::HighTemperature},
          {4000, celsius(40), kOn}}},
        {"state of charge",
         [](ZelmorConfig& c) {
             c.disconnectOnSoc(true);
             c.disconnectSocThreshold(20);
             c.reconnectOnSoc(true);
             c.reconnectSocThreshold(30);
         },
         {{0, percent(20), PowerStatus::FuelGauge},
          {1000, percent(29), PowerStatus::FuelGauge},
          {2000, percent(30), kOn}}},
        {"generator: on below its voltage, off at its charge after the delay",
         [](ZelmorConfig& c) {
             c.generatorEnable(true);
             c.generatorOnByVoltage(true);
             c.generatorOnVoltage(12.2);
             c.generatorOnVoltageFilter(1000);
             c.generatorOffBySoc(true);
             c.generatorOffSoc(90);
             c.generatorOffDelay(2);
         },
         {{0, volts(12.1), PowerStatus::Off},
          {1000, volts(12.1), kOn},
          {2000, {13.5, kNoVoltage2, 30, 20, 90}, kOn},
          {3999, {13.5, kNoVoltage2, 30, 20, 90}, kOn},
          {4000, {13.5, kNoVoltage2, 30, 20, 90}, PowerStatus::Off}}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZelmorConfig config;
        c.setup(config);
        sim::ProtectionRules rules(config, true);
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
    ZelmorConfig config;
    lvd(config);
    config.invertRelayLogic(true);
    sim::ProtectionRules rules(config, false);
    rules.update(0, volts(11));
    EXPECT_EQ(rules.powerStatus(), PowerStatus::Off);
    EXPECT_TRUE(rules.coilEnergised());
    rules.switchRelay(true);
    EXPECT_EQ(rules.powerStatus(), kOn);
    EXPECT_FALSE(rules.coilEnergised());
    rules.update(1000, volts(11));
    rules.update(3000, volts(11));
    EXPECT_EQ(rules.powerStatus(), kLvd);
    rules.switchRelay(false);
    rules.update(4000, volts(13));
    EXPECT_EQ(rules.powerStatus(), PowerStatus::Off);
}

}  // namespace
