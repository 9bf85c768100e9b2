// The scope display's texts where they change form: the time per division at
// each unit's edge, tick labels and readouts across the prefixes (the "M"
// prefix dividing by 1000), and the two-line time labels in wall-clock time.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

#include "scope_text.h"

namespace {

TEST(ScopeTextTest, TimePerDivisionChangesUnitAtEachEdge) {
    std::tuple<uint64_t, std::string> const cases[] = {
        {0, "0us / div"},
        {999, "999us / div"},
        {1000, "1ms / div"},
        {999'999, "999ms / div"},
        {1'000'000, "1s / div"},
        {59'999'999, "59s / div"},
        {60'000'000, "1m / div"},
        {3'599'999'999, "59m / div"},
        {3'600'000'000, "1h / div"},
        {86'399'999'999, "23h / div"},
        {86'400'000'000, "1d / div"},
        {172'800'000'000, "2d / div"},
    };
    for (auto const& [step, text] : cases) {
        SCOPED_TRACE(step);
        EXPECT_EQ(timePerDivisionText(step), text);
    }
}

TEST(ScopeTextTest, TickLabelsTakePrefixAndDecimalsFromTheirSize) {
    std::tuple<float, int16_t, uint16_t, std::string> const cases[] = {
        {0, -1, 1, "0"},         {0.0005f, -7, 2, "500.0u"}, {0.25f, -3, 3, "250m"}, {0.5f, -4, 1, "500.0m"},
        {-0.5f, -1, 1, "-500m"}, {5, -1, 1, "5.0"},          {5, -2, 1, "5.0"},  // never more decimals than allowed
        {5, 2, 1, "5"},          {999, 0, 0, "999"},         {1000, 0, 0, "1k"},     {1500, 0, 3, "1.500k"},
        {2e6f, 0, 1, "2000.0M"},  // a million divided by 1000
    };
    for (auto const& [value, exponent, decimals, text] : cases) {
        SCOPED_TRACE(value);
        EXPECT_EQ(tickLabel(value, exponent, decimals), text);
    }
}

TEST(ScopeTextTest, ReadoutsCarryTheUnitAndPrefixOnlyWhenAsked) {
    std::tuple<float, int, int, bool, std::string> const cases[] = {
        {NAN, -3, 3, true, ""},           {0, -3, 3, true, "0 V"},          {0.0005f, -6, 3, true, "500 uV"},
        {0.25f, -3, 3, true, "250 mV"},   {0.25f, -4, 3, true, "250.0 mV"}, {0.25f, -3, 3, false, "0.250 V"},
        {12.5f, -3, 3, true, "12.500 V"}, {999, 0, 3, true, "999 V"},       {1500, 0, 3, true, "1.500 kV"},
        {1500, 0, 3, false, "1500 V"},    {2e6f, 0, 1, true, "2000.0 MV"},  // a million divided by 1000
        {1, -3, 3, true, "1.000 V"},      {-1, -3, 3, true, "-1.000 V"},    {1000, 0, 3, true, "1.000 kV"},
    };
    for (auto const& [value, exponent, decimals, prefix, text] : cases) {
        SCOPED_TRACE(value);
        EXPECT_EQ(readoutText("V", exponent, decimals, prefix, value), text);
    }
    EXPECT_EQ(readoutText("°C", -1, 0, false, 21.4f), "21 °C");
}

TEST(ScopeTextTest, TimeLabelsShowWallClockTimeOverDate) {
    std::tuple<uint64_t, std::string> const cases[] = {
        {0, "12:00:00 AM\n01/01/70"},
        {999'999, "12:00:00 AM\n01/01/70"},
        {1'795'530'605'000'000, "02:30:05 PM\n11/24/26"},
    };
    for (auto const& [time, text] : cases) {
        SCOPED_TRACE(time);
        EXPECT_EQ(timeLabel(time), text);
    }
}

}  // namespace
