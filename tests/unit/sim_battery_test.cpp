// The battery model over simulated days: plausible values, cycling charge,
// meters that agree with the current, a prefilled history like a stepped one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "sim_test_host.h"

namespace {

using namespace simtest;

// Every reading keeps power = voltage x current, and a runtime only while
// discharging; over the days the charge cycles within the chemistry's
// voltages and the meters follow the integral of current and power.
TEST(SimBattery, DaysArePlausibleAndMetersMatchTheIntegralOfCurrent) {
    struct Case {
        uint8_t revision;
        sim::BatteryChemistry chemistry;
        int64_t days;
    };
    for (Case const c :
         {Case{0x41, sim::BatteryChemistry::LiFePO4, 7}, Case{0x31, sim::BatteryChemistry::LeadAcid, 3}}) {
        SCOPED_TRACE(int{c.revision});
        sim::SimulatedDeviceConfig config = model(c.revision);
        config.chemistry = c.chemistry;
        Bench b(config);
        std::vector<float> voltage1, voltage2, temperature;
        std::vector<int> charge;
        double chargeAs = 0, energyWs = 0, throughputAs = 0, throughputWs = 0;
        sim::MonitorReadings const first = b.device.readings();
        sim::MonitorReadings r = first;
        for (int64_t t = 0; t < c.days * 86400; t += 60) {
            voltage1.push_back(r.voltage1);
            voltage2.push_back(r.voltage2);
            temperature.push_back(r.temperature);
            charge.push_back(r.stateOfCharge);
            chargeAs += r.current * 60.0;
            energyWs += r.power * 60.0;
            throughputAs += std::fabs(r.current) * 60.0;
            throughputWs += std::fabs(r.power) * 60.0;
            ASSERT_NEAR(r.power, r.voltage1 * r.current, 1e-3 + 1e-5 * std::fabs(r.power));
            if (r.current > 0.1f) {
                ASSERT_EQ(r.runtime, sim::kRuntimeNotAvailable);
                ASSERT_TRUE(r.status & sim::kStatusCharging);
            }
            if (r.current < -0.1f) {
                ASSERT_LE(r.runtime, sim::kRuntimeMax);
            }
            b.advance(60);
            r = b.device.readings();
        }
        auto const [low1, high1] = std::minmax_element(voltage1.begin(), voltage1.end());
        EXPECT_GE(*low1, 10.5f);
        EXPECT_LE(*high1, 14.8f);
        EXPECT_GT(*high1 - *low1, 0.3f);
        auto const [lowT, highT] = std::minmax_element(temperature.begin(), temperature.end());
        EXPECT_GE(*lowT, 10.0f);
        EXPECT_LE(*highT, 30.0f);
        auto const [lowCharge, highCharge] = std::minmax_element(charge.begin(), charge.end());
        EXPECT_GE(*highCharge - *lowCharge, 10);
        EXPECT_LE(*highCharge, 100);
        if (c.revision == 0x31) {
            EXPECT_TRUE(std::isnan(r.voltage2));
            EXPECT_FALSE(r.status & sim::kStatusSecondVoltage);
        } else {
            auto const [low2, high2] = std::minmax_element(voltage2.begin(), voltage2.end());
            EXPECT_GE(*low2, 12.4f);
            EXPECT_LE(*high2, 13.9f);
        }
        EXPECT_NEAR(static_cast<double>(r.coulombMeter - first.coulombMeter), chargeAs / 3.6,
                    0.02 * throughputAs / 3.6);
        EXPECT_NEAR(static_cast<double>(r.energyMeter - first.energyMeter), energyWs / 3.6, 0.02 * throughputWs / 3.6);
        EXPECT_GT(throughputAs / 3.6, 20'000.0 * static_cast<double>(c.days));  // more than 20 Ah a day
    }
}

TEST(SimBattery, PrefillAgreesWithSecondBySecondRun) {
    Bench stepped(model(0x41), kStartTime - 2 * 86400);
    for (int64_t t = 0; t < 2 * 86400; t += 300) {
        stepped.advance(300);
        stepped.device.readings();
    }
    sim::SimulatedDeviceConfig config = model(0x41);
    config.historyDays = 2;
    Bench prefilled(config);
    sim::MonitorReadings const a = stepped.device.readings();
    sim::MonitorReadings const b = prefilled.device.readings();
    EXPECT_NEAR(a.stateOfCharge, b.stateOfCharge, 3);
    EXPECT_NEAR(a.voltage1, b.voltage1, 0.1);
    EXPECT_NEAR(static_cast<double>(a.coulombMeter), static_cast<double>(b.coulombMeter), 5000);
    EXPECT_EQ(a.temperature, b.temperature);
}

}  // namespace
