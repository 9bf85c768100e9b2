// The battery model over simulated days: plausible values, cycling charge,
// meters that agree with the current, determinism.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "sim_test_host.h"

namespace {

using namespace simtest;

struct WeekSummary {
    float minVoltage1 = 100, maxVoltage1 = 0, minVoltage2 = 100, maxVoltage2 = 0;
    float minTemperature = 100, maxTemperature = -100;
    int minCharge = 255, maxCharge = -1;
    double chargeAs = 0, energyWs = 0, throughputAs = 0, throughputWs = 0;
    int64_t coulombStart = 0, energyStart = 0;
    sim::MonitorReadings last;
    bool chargedSometime = false, dischargedSometime = false;
};

WeekSummary simulate(sim::SimulatedDevice& device, ManualClock& clock, int64_t seconds, int64_t step) {
    WeekSummary s;
    sim::MonitorReadings r = device.readings();
    s.coulombStart = r.coulombMeter;
    s.energyStart = r.energyMeter;
    for (int64_t t = 0; t < seconds; t += step) {
        s.minVoltage1 = std::min(s.minVoltage1, r.voltage1);
        s.maxVoltage1 = std::max(s.maxVoltage1, r.voltage1);
        s.minVoltage2 = std::min(s.minVoltage2, r.voltage2);
        s.maxVoltage2 = std::max(s.maxVoltage2, r.voltage2);
        s.minTemperature = std::min(s.minTemperature, r.temperature);
        s.maxTemperature = std::max(s.maxTemperature, r.temperature);
        s.minCharge = std::min<int>(s.minCharge, r.stateOfCharge);
        s.maxCharge = std::max<int>(s.maxCharge, r.stateOfCharge);
        s.chargeAs += r.current * static_cast<double>(step);
        s.energyWs += r.power * static_cast<double>(step);
        s.throughputAs += std::fabs(r.current) * static_cast<double>(step);
        s.throughputWs += std::fabs(r.power) * static_cast<double>(step);
        s.chargedSometime |= r.current > 5;
        s.dischargedSometime |= r.current < -5;
        EXPECT_NEAR(r.power, r.voltage1 * r.current, 1e-3 + 1e-5 * std::fabs(r.power));
        if (r.current > 0.1f) {
            EXPECT_EQ(r.runtime, sim::kRuntimeNotAvailable);
            EXPECT_TRUE(r.status & sim::kStatusCharging);
        }
        if (r.current < -0.1f) {
            EXPECT_LE(r.runtime, sim::kRuntimeMax);
        }
        clock.advance(step);
        r = device.readings();
    }
    s.last = r;
    return s;
}

TEST(SimBattery, WeekIsPlausible) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    WeekSummary const s = simulate(device, clock, 7 * 86400, 60);
    EXPECT_GE(s.minVoltage1, 10.5f);
    EXPECT_LE(s.maxVoltage1, 14.8f);
    EXPECT_GE(s.minVoltage2, 12.4f);
    EXPECT_LE(s.maxVoltage2, 13.9f);
    EXPECT_GE(s.minTemperature, 10.0f);
    EXPECT_LE(s.maxTemperature, 30.0f);
    EXPECT_GE(s.maxCharge - s.minCharge, 10);
    EXPECT_LE(s.maxCharge, 100);
    EXPECT_TRUE(s.chargedSometime);
    EXPECT_TRUE(s.dischargedSometime);
    EXPECT_GT(s.maxVoltage1 - s.minVoltage1, 0.3f);
}

TEST(SimBattery, MetersMatchTheIntegralOfCurrent) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x10, clock));
    WeekSummary const s = simulate(device, clock, 7 * 86400, 60);
    double const coulombMah = static_cast<double>(s.last.coulombMeter - s.coulombStart);
    double const energyMwh = static_cast<double>(s.last.energyMeter - s.energyStart);
    EXPECT_NEAR(coulombMah, s.chargeAs / 3.6, 0.02 * s.throughputAs / 3.6);
    EXPECT_NEAR(energyMwh, s.energyWs / 3.6, 0.02 * s.throughputWs / 3.6);
    EXPECT_GT(s.throughputAs / 3.6, 100'000.0);  // more than 100 Ah moved in a week
}

TEST(SimBattery, LeadAcidWithoutSecondInput) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x31, clock);
    config.chemistry = sim::BatteryChemistry::LeadAcid;
    config.capacityAh = 100;
    sim::SimulatedDevice device(config);
    WeekSummary const s = simulate(device, clock, 3 * 86400, 120);
    EXPECT_GE(s.minVoltage1, 10.5f);
    EXPECT_LE(s.maxVoltage1, 14.8f);
    EXPECT_TRUE(std::isnan(s.last.voltage2));
    EXPECT_FALSE(s.last.status & sim::kStatusSecondVoltage);
}

TEST(SimBattery, SameSeedSameBattery) {
    ManualClock clock;
    sim::SimulatedDevice a(configFor(0x41, clock));
    sim::SimulatedDevice b(configFor(0x41, clock));
    sim::SimulatedDeviceConfig otherSeed = configFor(0x41, clock);
    otherSeed.seed = 99;
    sim::SimulatedDevice c(otherSeed);
    clock.advance(5 * 3600);
    sim::MonitorReadings const ra = a.readings();
    sim::MonitorReadings const rb = b.readings();
    sim::MonitorReadings const rc = c.readings();
    EXPECT_EQ(ra.voltage1, rb.voltage1);
    EXPECT_EQ(ra.current, rb.current);
    EXPECT_EQ(ra.coulombMeter, rb.coulombMeter);
    EXPECT_EQ(ra.temperature, rb.temperature);
    EXPECT_NE(ra.voltage1, rc.voltage1);
    EXPECT_EQ(a.accessKey(), b.accessKey());
    EXPECT_NE(a.accessKey(), c.accessKey());
}

TEST(SimBattery, PrefillAgreesWithSecondBySecondRun) {
    int64_t const days = 2;
    ManualClock early(kStartTime - days * 86400);
    sim::SimulatedDevice stepped(configFor(0x41, early));
    for (int64_t t = 0; t < days * 86400; t += 300) {
        early.advance(300);
        stepped.readings();
    }
    ManualClock late(kStartTime);
    sim::SimulatedDeviceConfig config = configFor(0x41, late);
    config.historyDays = days;
    sim::SimulatedDevice prefilled(config);
    sim::MonitorReadings const a = stepped.readings();
    sim::MonitorReadings const b = prefilled.readings();
    EXPECT_NEAR(a.stateOfCharge, b.stateOfCharge, 3);
    EXPECT_NEAR(a.voltage1, b.voltage1, 0.1);
    EXPECT_NEAR(static_cast<double>(a.coulombMeter), static_cast<double>(b.coulombMeter), 5000);
    EXPECT_EQ(a.temperature, b.temperature);
}

TEST(SimBattery, FuelGaugeSynchroniseAndMeterResets) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    clock.advance(3600);
    EXPECT_NE(device.readings().coulombMeter, 0);
    EXPECT_EQ(host.call(0x11).code, 0);
    EXPECT_EQ(device.readings().coulombMeter, 0);
    EXPECT_EQ(host.call(0x10).code, 0);
    EXPECT_EQ(device.readings().energyMeter, 0);

    EXPECT_EQ(host.call(0x13).code, 0);
    EXPECT_EQ(device.readings().stateOfCharge, 100);
    clock.advance(120);
    Answer const fg = host.call(0x03);
    ASSERT_EQ(fg.payload.size(), 75u);
    EXPECT_EQ(readLe<uint32_t>(fg.payload.data() + 3), 120u);
    EXPECT_FLOAT_EQ(readLe<float>(fg.payload.data() + 3 + 4), 200.0f);
}

}  // namespace
