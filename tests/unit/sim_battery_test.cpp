// The battery model over simulated days: plausible values, cycling charge,
// meters that agree with the current, determinism.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>

#include "sim_test_host.h"

namespace {

using namespace simtest;

struct Range {
    float low = INFINITY, high = -INFINITY;
    void add(float v) {
        low = std::min(low, v);
        high = std::max(high, v);
    }
};

struct RunSummary {
    Range voltage1, voltage2, temperature, charge;
    double chargeAs = 0, energyWs = 0, throughputAs = 0, throughputWs = 0;
    sim::MonitorReadings first, last;
    bool charged = false, discharged = false;
};

/// Samples the readings every `step` seconds and checks the rules each must keep.
RunSummary simulate(sim::SimulatedDevice& device, ManualClock& clock, int64_t seconds, int64_t step) {
    RunSummary s;
    sim::MonitorReadings r = s.first = device.readings();
    for (int64_t t = 0; t < seconds; t += step) {
        s.voltage1.add(r.voltage1);
        s.voltage2.add(r.voltage2);
        s.temperature.add(r.temperature);
        s.charge.add(r.stateOfCharge);
        auto const dt = static_cast<double>(step);
        s.chargeAs += r.current * dt;
        s.energyWs += r.power * dt;
        s.throughputAs += std::fabs(r.current) * dt;
        s.throughputWs += std::fabs(r.power) * dt;
        s.charged |= r.current > 5;
        s.discharged |= r.current < -5;
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

TEST(SimBattery, WeekIsPlausibleAndMetersMatchTheIntegralOfCurrent) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    RunSummary const s = simulate(device, clock, 7 * 86400, 60);
    EXPECT_GE(s.voltage1.low, 10.5f);
    EXPECT_LE(s.voltage1.high, 14.8f);
    EXPECT_GT(s.voltage1.high - s.voltage1.low, 0.3f);
    EXPECT_GE(s.voltage2.low, 12.4f);
    EXPECT_LE(s.voltage2.high, 13.9f);
    EXPECT_GE(s.temperature.low, 10.0f);
    EXPECT_LE(s.temperature.high, 30.0f);
    EXPECT_GE(s.charge.high - s.charge.low, 10);
    EXPECT_LE(s.charge.high, 100);
    EXPECT_TRUE(s.charged);
    EXPECT_TRUE(s.discharged);

    double const coulombMah = static_cast<double>(s.last.coulombMeter - s.first.coulombMeter);
    double const energyMwh = static_cast<double>(s.last.energyMeter - s.first.energyMeter);
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
    RunSummary const s = simulate(device, clock, 3 * 86400, 120);
    EXPECT_GE(s.voltage1.low, 10.5f);
    EXPECT_LE(s.voltage1.high, 14.8f);
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
    EXPECT_EQ(std::tie(ra.voltage1, ra.current, ra.coulombMeter, ra.temperature),
              std::tie(rb.voltage1, rb.current, rb.coulombMeter, rb.temperature));
    EXPECT_NE(ra.voltage1, c.readings().voltage1);
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

TEST(SimBattery, FuelGaugeSynchroniseAndCoulombMeterReset) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    clock.advance(3600);
    EXPECT_NE(device.readings().coulombMeter, 0);
    EXPECT_EQ(host.call(0x11).code, 0);
    EXPECT_EQ(device.readings().coulombMeter, 0);

    EXPECT_EQ(host.call(0x13).code, 0);
    EXPECT_EQ(device.readings().stateOfCharge, 100);
    clock.advance(120);
    Answer const fg = host.call(0x03);
    ASSERT_EQ(fg.payload.size(), 75u);
    EXPECT_EQ(readLe<uint32_t>(fg.payload.data() + 3), 120u);  // seconds since the synchronisation
}

}  // namespace
