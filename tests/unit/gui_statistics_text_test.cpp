// Where the statistics texts change form: durations at the hour and the day,
// totals at one million, and the rows of a model without a second voltage.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "statistics_text.h"

namespace {

TEST(StatisticsTextTest, TextsChangeFormAtTheirEdges) {
    std::tuple<std::string, std::string> const cases[] = {
        {durationText(3599), "59m 59s"},
        {durationText(3600), "1h 0m 0s"},
        {durationText(86399), "23h 59m 59s"},
        {durationText(86400), "1d 0h 0m"},
        {sinceFullChargeLine(4294967294), "Time since last full charge: 49710d 6h 28m"},
        {sinceFullChargeLine(4294967295), "Time since last full charge: unknown"},
        {capacityTotalLine("Total charged capacity", 999'999), "Total charged capacity: 1000.0 Ah"},
        {capacityTotalLine("Total charged capacity", 1'000'000), "Total charged capacity: 1.00 kAh"},
        {energyTotalLine("Total charged energy", 999'999), "Total charged energy: 1000 Wh"},
        {energyTotalLine("Total charged energy", 1'000'000), "Total charged energy: 1.00 kWh"},
    };
    for (auto const& [shown, expected] : cases) EXPECT_EQ(shown, expected);
}

TEST(StatisticsTextTest, RowsLeaveOutAMissingSecondVoltage) {
    Zelmor::MonitorStatistics statistics{3600, 12.5f, 14.25f, 12.625f, 13.65f, 41.744f, 7.5f, -0.4f, 24.86f};
    std::vector<StatisticsRow> rows = statisticsRows(statistics);
    EXPECT_EQ(rows, (std::vector<StatisticsRow>{
                        {"Time Since Powered On:", "1h 0m 0s"},
                        {"Minimum Voltage 1:", "12.500 V"},
                        {"Maximum Voltage 1:", "14.250 V"},
                        {"Minimum Voltage 2:", "12.625 V"},
                        {"Maximum Voltage 2:", "13.650 V"},
                        {"Peak Discharge Current:", " 41.74 A"},
                        {"Peak Charge Current:", "  7.50 A"},
                        {"Minimum Temperature:", "  0 °C"},  // not "-0"
                        {"Maximum Temperature:", " 25 °C"},
                    }));
    statistics.minVoltage2 = statistics.maxVoltage2 = NAN;
    rows = statisticsRows(statistics);
    ASSERT_EQ(rows.size(), 7u);
    EXPECT_EQ(rows[3].label, "Peak Discharge Current:");
}

}  // namespace
