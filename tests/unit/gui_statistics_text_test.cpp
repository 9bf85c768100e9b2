// The two statistics dialogs' texts: durations and totals at the edges where
// their form changes, the power meter rows with and without a second voltage,
// and the fuel gauge's lines.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "statistics_text.h"

namespace {

TEST(StatisticsTextTest, DurationsChangeFormAtTheHourAndTheDay) {
    struct Case {
        uint32_t seconds;
        std::string powerOn;
        std::string sinceFullCharge;
    };
    Case const cases[] = {
        {0, "0m 0s", "Time since last full charge: 0m 0s"},
        {3599, "59m 59s", "Time since last full charge: 59m 59s"},
        {3600, "1h 0m 0s", "Time since last full charge: 1h 0m 0s"},
        {86399, "23h 59m 59s", "Time since last full charge: 23h 59m 59s"},
        {86400, "1d 0h 0m", "Time since last full charge: 1d 0h 0m"},
        {4294967294, "49710d 6h 28m", "Time since last full charge: 49710d 6h 28m"},
        {4294967295, "49710d 6h 28m", "Time since last full charge: unknown"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.seconds);
        EXPECT_EQ(durationText(c.seconds), c.powerOn);
        EXPECT_EQ(sinceFullChargeLine(c.seconds), c.sinceFullCharge);
    }
}

TEST(StatisticsTextTest, TotalsSwitchToKiloAtOneMillion) {
    struct Case {
        uint64_t milli;
        std::string capacity;
        std::string energy;
    };
    Case const cases[] = {
        {0, "Total charged capacity: 0.0 Ah", "Total charged energy: 0 Wh"},
        {999'999, "Total charged capacity: 1000.0 Ah", "Total charged energy: 1000 Wh"},
        {1'000'000, "Total charged capacity: 1.00 kAh", "Total charged energy: 1.00 kWh"},
        {123'456'789, "Total charged capacity: 123.46 kAh", "Total charged energy: 123.46 kWh"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.milli);
        EXPECT_EQ(capacityTotalLine("Total charged capacity", c.milli), c.capacity);
        EXPECT_EQ(energyTotalLine("Total charged energy", c.milli), c.energy);
    }
}

TEST(StatisticsTextTest, PowerMeterRowsLeaveOutAMissingSecondVoltage) {
    Zelmor::MonitorStatistics statistics{86399, 12.5f, 14.25f, 12.625f, 13.65f, 41.744f, 7.5f, -0.4f, 24.86f};
    std::vector<StatisticsRow> const bothVoltages = {
        {"Time Since Powered On:", "23h 59m 59s"}, {"Minimum Voltage 1:", "12.500 V"},
        {"Maximum Voltage 1:", "14.250 V"},        {"Minimum Voltage 2:", "12.625 V"},
        {"Maximum Voltage 2:", "13.650 V"},        {"Peak Discharge Current:", " 41.74 A"},
        {"Peak Charge Current:", "  7.50 A"},      {"Minimum Temperature:", "  0 °C"},
        {"Maximum Temperature:", " 25 °C"},
    };
    EXPECT_EQ(statisticsRows(statistics), bothVoltages);

    statistics.minVoltage2 = statistics.maxVoltage2 = NAN;
    std::vector<StatisticsRow> oneVoltage = bothVoltages;
    oneVoltage.erase(oneVoltage.begin() + 3, oneVoltage.begin() + 5);
    EXPECT_EQ(statisticsRows(statistics), oneVoltage);
}

TEST(StatisticsTextTest, FuelGaugeLinesInOrder) {
    Zelmor::FuelgaugeStatistics const statistics{3599,    200,     86'167,  1'147'607, 1'000'000, 999'999, 12.994f,
                                                 14.298f, 41.744f, 17.655f, 0.528f,    73.165f,   3};
    std::vector<std::string> const lines = {
        "Time since last full charge: 59m 59s", "Full charge capacity:   200 Ah",
        "Total discharged capacity: 86.2 Ah",   "Total discharged energy: 1.15 kWh",
        "Total charged capacity: 1.00 kAh",     "Total charged energy: 1000 Wh",
        "Minimum battery voltage: 12.994 V",    "Maximum battery voltage: 14.298 V",
        "Maximum discharge current: 41.74 A",   "Maximum charge current: 17.66 A",
        "Last discharge depth: 0.5 Ah",         "Deepest discharge: 73.2 Ah",
        "Number of full discharge cycles: 3",
    };
    EXPECT_EQ(fuelGaugeLines(statistics), lines);
}

}  // namespace
