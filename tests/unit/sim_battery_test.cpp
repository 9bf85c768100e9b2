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

// Every reading keeps power = voltage x current, and a runtime only while
// discharging; over the days the charge cycles and the meters follow the
// integral of current and power.
TEST(SimBattery, DaysArePlausibleAndMetersMatchTheIntegralOfCurrent) {
    struct Case {
        uint8_t revision;
        sim::BatteryChemistry chemistry;
        double capacityAh;
        int64_t days;
    };
    for (Case const c :
         {Case{0x41, sim::BatteryChemistry::LiFePO4, 200, 7}, Case{0x31, sim::BatteryChemistry::LeadAcid, 100, 3}}) {
        SCOPED_TRACE(int{c.revision});
        sim::SimulatedDeviceConfig config = model(c.revision);
        config.chemistry = c.chemistry;
        config.capacityAh = c.capacityAh;
        Bench b(config);
        Range voltage1, voltage2, temperature, charge;
        double chargeAs = 0, energyWs = 0, throughputAs = 0, throughputWs = 0;
        bool charged = false, discharged = false;
        sim::MonitorReadings const first = b.device.readings();
        sim::MonitorReadings r = first;
        for (int64_t t = 0; t < c.days * 86400; t += 60) {
            voltage1.add(r.voltage1);
            voltage2.add(r.voltage2);
            temperature.add(r.temperature);
            charge.add(r.stateOfCharge);
            chargeAs += r.current * 60.0;
            energyWs += r.power * 60.0;
            throughputAs += std::fabs(r.current) * 60.0;
            throughputWs += std::fabs(r.power) * 60.0;
            charged |= r.current > 5;
            discharged |= r.current < -5;
            ASSERT_NEAR(r.power, r.voltage1 * r.current, 1e-3 + 1e-5 * std::fabs(r.power));
            if (r.current > 0.1f) {
                ASSERT_EQ(r.runtime, sim::kRuntimeNotAvailable);
                ASSERT_TRUE(r.status & sim::kStatusCharging);
            }
            if (r.current < -0.1f) {
                ASSERT_LE(r.runtime, sim::kRuntimeMax);
            }
            b.clock.advance(60);
            r = b.device.readings();
        }
        EXPECT_GE(voltage1.low, 10.5f);
        EXPECT_LE(voltage1.high, 14.8f);
        EXPECT_GT(voltage1.high - voltage1.low, 0.3f);
        EXPECT_GE(temperature.low, 10.0f);
        EXPECT_LE(temperature.high, 30.0f);
        EXPECT_GE(charge.high - charge.low, 10);
        EXPECT_LE(charge.high, 100);
        EXPECT_TRUE(charged);
        EXPECT_TRUE(discharged);
        if (c.revision == 0x31) {
            EXPECT_TRUE(std::isnan(r.voltage2));
            EXPECT_FALSE(r.status & sim::kStatusSecondVoltage);
        } else {
            EXPECT_GE(voltage2.low, 12.4f);
            EXPECT_LE(voltage2.high, 13.9f);
            EXPECT_TRUE(r.status & sim::kStatusSecondVoltage);
        }

        double const coulombMah = static_cast<double>(r.coulombMeter - first.coulombMeter);
        double const energyMwh = static_cast<double>(r.energyMeter - first.energyMeter);
        EXPECT_NEAR(coulombMah, chargeAs / 3.6, 0.02 * throughputAs / 3.6);
        EXPECT_NEAR(energyMwh, energyWs / 3.6, 0.02 * throughputWs / 3.6);
        EXPECT_GT(throughputAs / 3.6, c.capacityAh * 100 * static_cast<double>(c.days));  // 10 % a day at least
    }
}

TEST(SimBattery, SameSeedSameBattery) {
    Bench a;
    Bench b;
    sim::SimulatedDeviceConfig otherSeed = model(0x41);
    otherSeed.seed = 99;
    Bench c(otherSeed);
    for (Bench* bench : {&a, &b, &c}) bench->clock.advance(5 * 3600);
    sim::MonitorReadings const ra = a.device.readings();
    sim::MonitorReadings const rb = b.device.readings();
    EXPECT_EQ(std::tie(ra.voltage1, ra.current, ra.coulombMeter, ra.temperature),
              std::tie(rb.voltage1, rb.current, rb.coulombMeter, rb.temperature));
    EXPECT_NE(ra.voltage1, c.device.readings().voltage1);
    EXPECT_EQ(a.device.accessKey(), b.device.accessKey());
    EXPECT_NE(a.device.accessKey(), c.device.accessKey());
}

TEST(SimBattery, PrefillAgreesWithSecondBySecondRun) {
    int64_t const days = 2;
    Bench stepped(model(0x41), kStartTime - days * 86400);
    for (int64_t t = 0; t < days * 86400; t += 300) {
        stepped.clock.advance(300);
        stepped.device.readings();
    }
    sim::SimulatedDeviceConfig config = model(0x41);
    config.historyDays = days;
    Bench prefilled(config);
    sim::MonitorReadings const a = stepped.device.readings();
    sim::MonitorReadings const b = prefilled.device.readings();
    EXPECT_NEAR(a.stateOfCharge, b.stateOfCharge, 3);
    EXPECT_NEAR(a.voltage1, b.voltage1, 0.1);
    EXPECT_NEAR(static_cast<double>(a.coulombMeter), static_cast<double>(b.coulombMeter), 5000);
    EXPECT_EQ(a.temperature, b.temperature);
}

}  // namespace
