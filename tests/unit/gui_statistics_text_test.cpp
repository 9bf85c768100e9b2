// Where the statistics texts change form: durations at the hour and the day,
// totals at one million, and the rows of a model without a second voltage.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "statistics_text.h"

namespace {

TEST(StatisticsTextTest, DurationsChangeFormAtTheHourAndTheDay) {
    std::tuple<uint32_t, std::string> const cases[] = {{3599, "59m 59s"},
                                                       {3600, "1h 0m 0s"},
                                                       {86399, "23h 59m 59s"},
                                                       {86400, "1d 0h 0m"},
                                                       {4294967294, "49710d 6h 28m"}};
    for (auto const& [seconds, text] : cases) {
        SCOPED_TRACE(seconds);
        EXPECT_EQ(durationText(seconds), text);
        EXPECT_EQ(sinceFullChargeLine(seconds), "Time since last full charge: " + text);
    }
    EXPECT_EQ(sinceFullChargeLine(4294967295), "Time since last full charge: unknown");
}

TEST(StatisticsTextTest, TotalsSwitchToKiloAtOneMillion) {
    std::tuple<uint64_t, std::string, std::string> const cases[] = {
        {999'999, "Total charged capacity: 1000.0 Ah", "Total charged energy: 1000 Wh"},
        {1'000'000, "Total charged capacity: 1.00 kAh", "Total charged energy: 1.00 kWh"}};
    for (auto const& [milli, capacity, energy] : cases) {
        SCOPED_TRACE(milli);
        EXPECT_EQ(capacityTotalLine("Total charged capacity", milli), capacity);
        EXPECT_EQ(energyTotalLine("Total charged energy", milli), energy);
    }
}

TEST(StatisticsTextTest, RowsLeaveOutAMissingSecondVoltage) {
    Zelmor::MonitorStatistics statistics{3600, 12.5f, 14.25f, 12.625f, 13.65f, 41.744f, 7.5f, -0.4f, 24.86f};
    std::vector<StatisticsRow> rows = statisticsRows(statistics);
    ASSERT_EQ(rows.size(), 9u);
    EXPECT_EQ(rows[3], (StatisticsRow{"Minimum Voltage 2:", "12.625 V"}));
    EXPECT_EQ(rows[7], (StatisticsRow{"Minimum Temperature:", "  0 °C"}));  // not "-0"
    statistics.minVoltage2 = statistics.maxVoltage2 = NAN;
    rows = statisticsRows(statistics);
    ASSERT_EQ(rows.size(), 7u);
    EXPECT_EQ(rows[3].label, "Peak Discharge Current:");
}

}  // namespace
