// The device window's live panel: which rows a reading shows, in which order,
// and each value in its format with its edge values.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "live_panel_rows.h"
#include "local_device_cells.h"

namespace {

using Data = Zelmor::MonitorData;

constexpr uint32_t kStatusSecondVoltage = 1u << 2;
constexpr uint32_t kNovember14th2023At221320Utc = 1700000000;

// A reading with every row on display.
Data reading() {
    Data d;
    d.hardwareRevision = 0x41;
    d.time = kNovember14th2023At221320Utc;
    d.status = kStatusSecondVoltage;
    d.voltage1 = 12.5f;
    d.voltage2 = 12.25f;
    d.current = -1.25f;
    d.power = -15.5f;
    d.temperature = 21.4f;
    d.coulombMeter = 1500;
    d.energyMeter = 12340;
    d.powerStatus = 1;
    d.stateOfCharge = 87;
    d.runtime = 90;
    d.rssi = -67;
    return d;
}

std::vector<std::string> labels(std::vector<PanelRow> const& rows) {
    std::vector<std::string> out;
    for (auto const& row : rows) out.push_back(row.label);
    return out;
}

std::optional<std::string> value(std::vector<PanelRow> const& rows, std::string const& label) {
    for (auto const& row : rows)
        if (row.label == label) return row.value;
    return std::nullopt;
}

std::optional<std::string> value(Data const& d, std::string const& label) {
    return value(livePanelRows(d, true, std::nullopt), label);
}

TEST(LivePanelRowsTest, EveryRowInOrderWhenTheDeviceReportsEverything) {
    auto const rows = livePanelRows(reading(), true, std::nullopt);
    EXPECT_EQ(labels(rows), (std::vector<std::string>{"Voltage 1", "Voltage 2", "Current", "Power", "Energy Meter",
                                                      "Coulomb Meter", "Battery SoC", "Battery Runtime", "Temperature",
                                                      "Power Status", "Device Clock", "Device RSSI"}));
    EXPECT_EQ(value(rows, "Voltage 1"), "12.500 V");
    EXPECT_EQ(value(rows, "Voltage 2"), "12.250 V");
    EXPECT_EQ(value(rows, "Current"), "-1.250 A");
    EXPECT_EQ(value(rows, "Temperature"), "21 °C");
    EXPECT_EQ(value(rows, "Power Status"), "ON");
}

TEST(LivePanelRowsTest, OnlyTheAlwaysRowsWhenTheDeviceReportsLittle) {
    Data d = reading();
    d.status = 0;
    d.stateOfCharge = 255;
    d.runtime = 65535;
    auto const rows = livePanelRows(d, false, std::nullopt);
    EXPECT_EQ(labels(rows), (std::vector<std::string>{"Voltage", "Current", "Power", "Energy Meter", "Coulomb Meter",
                                                      "Temperature", "Power Status", "Device Clock"}));
    EXPECT_EQ(value(rows, "Voltage"), "12.500 V");
}

TEST(LivePanelRowsTest, OneVoltageRowUnlessASecondVoltageIsMeasured) {
    float const nan = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        uint32_t status;
        float voltage2;
        bool split;
    };
    Case const cases[] = {
        {kStatusSecondVoltage, 12.25f, true},   {kStatusSecondVoltage | 3u, 0.0f, true},
        {kStatusSecondVoltage, nan, false},     {0, 12.25f, false},
        {~kStatusSecondVoltage, 12.25f, false},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.status = c.status;
        d.voltage2 = c.voltage2;
        auto const rows = livePanelRows(d, false, std::nullopt);
        EXPECT_EQ(value(rows, "Voltage").has_value(), !c.split) << c.status << " " << c.voltage2;
        EXPECT_EQ(value(rows, "Voltage 1").has_value(), c.split) << c.status << " " << c.voltage2;
        EXPECT_EQ(value(rows, "Voltage 2").has_value(), c.split) << c.status << " " << c.voltage2;
        EXPECT_EQ(rows.front().value, "12.500 V");
    }
}

TEST(LivePanelRowsTest, Power) {
    struct Case {
        float watts;
        char const* text;
    };
    Case const cases[] = {
        {0.0f, "0.00 W"},      {-15.5f, "-15.50 W"},    {999.99f, "999.99 W"},   {-999.99f, "-999.99 W"},
        {1000.0f, "1.000 kW"}, {-1500.0f, "-1.500 kW"}, {12345.0f, "12.345 kW"},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.power = c.watts;
        EXPECT_EQ(value(d, "Power"), c.text) << c.watts;
    }
}

TEST(LivePanelRowsTest, EnergyMeterCountsMilliwattHours) {
    struct Case {
        int64_t milliwattHours;
        char const* text;
    };
    Case const cases[] = {
        {0, "0.00 Wh"},         {12340, "12.34 Wh"},      {999990, "999.99 Wh"},  {-999990, "-999.99 Wh"},
        {1000000, "1.000 kWh"}, {-1000000, "-1.000 kWh"}, {1234567, "1.235 kWh"}, {-1500000, "-1.500 kWh"},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.energyMeter = c.milliwattHours;
        EXPECT_EQ(value(d, "Energy Meter"), c.text) << c.milliwattHours;
    }
}

TEST(LivePanelRowsTest, CoulombMeterCountsMilliampHoursAndStaysInAmpHours) {
    struct Case {
        int64_t milliampHours;
        char const* text;
    };
    Case const cases[] = {
        {0, "0.000 Ah"},       {1500, "1.500 Ah"},      {999999, "999.999 Ah"}, {-999999, "-999.999 Ah"},
        {1000000, "1.000 Ah"}, {-1000000, "-1.000 Ah"}, {2500000, "2.500 Ah"},  {-250, "-0.250 Ah"},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.coulombMeter = c.milliampHours;
        EXPECT_EQ(value(d, "Coulomb Meter"), c.text) << c.milliampHours;
    }
}

TEST(LivePanelRowsTest, StateOfCharge) {
    struct Case {
        uint8_t percent;
        std::optional<std::string> text;
    };
    Case const cases[] = {
        {0, "0 %"}, {100, "100 %"}, {101, "unknown"}, {254, "unknown"}, {255, std::nullopt},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.stateOfCharge = c.percent;
        EXPECT_EQ(value(d, "Battery SoC"), c.text) << unsigned{c.percent};
    }
}

TEST(LivePanelRowsTest, Runtime) {
    struct Case {
        uint16_t minutes;
        std::optional<std::string> text;
    };
    Case const cases[] = {
        {0, "under 1m"},     {59, "59m"},           {60, "1h 0m"},         {1439, "23h 59m"},
        {1440, "1d 0h"},     {2999, "2d 1h"},       {64800, "45d 0h"},     {64801, "over 45d"},
        {65520, "over 45d"}, {65521, std::nullopt}, {65534, std::nullopt}, {65535, std::nullopt},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.runtime = c.minutes;
        EXPECT_EQ(value(d, "Battery Runtime"), c.text) << c.minutes;
    }
}

TEST(LivePanelRowsTest, TemperatureAndPowerStatus) {
    struct Case {
        float celsius;
        uint8_t powerStatus;
        char const* temperature;
        char const* status;
    };
    Case const cases[] = {
        {21.4f, 0, "21 °C", "OFF"},
        {-0.4f, 2, "0 °C", "LVD"},
        {-5.6f, 8, "-6 °C", "HTD"},
        {99.5f, 9, "100 °C", ""},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.temperature = c.celsius;
        d.powerStatus = c.powerStatus;
        EXPECT_EQ(value(d, "Temperature"), c.temperature) << c.celsius;
        EXPECT_EQ(value(d, "Power Status"), c.status) << unsigned{c.powerStatus};
    }
}

TEST(LivePanelRowsTest, DeviceClockInTheDeviceTimeZone) {
    struct Case {
        uint32_t time;
        std::optional<int> utcOffsetMinutes;
        char const* text;
    };
    Case const cases[] = {
        {kNovember14th2023At221320Utc, std::nullopt, "10:13 PM Nov 14, 2023"},
        {kNovember14th2023At221320Utc, 0, "10:13 PM Nov 14, 2023"},
        {kNovember14th2023At221320Utc, 120, "12:13 AM Nov 15, 2023"},
        {kNovember14th2023At221320Utc, -300, "05:13 PM Nov 14, 2023"},
        {kNovember14th2023At221320Utc, 330, "03:43 AM Nov 15, 2023"},
        {1, std::nullopt, "12:00 AM Jan 01, 1970"},
        {0, std::nullopt, "not set"},
        {0, 120, "not set"},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.time = c.time;
        EXPECT_EQ(value(livePanelRows(d, false, c.utcOffsetMinutes), "Device Clock"), c.text)
            << c.time << " " << c.utcOffsetMinutes.value_or(0);
    }
}

TEST(LivePanelRowsTest, SignalStrengthOnlyWhenTheLinkMeasuresIt) {
    Data d = reading();
    EXPECT_EQ(value(livePanelRows(d, true, std::nullopt), "Device RSSI"), "-67 dBm");
    EXPECT_EQ(value(livePanelRows(d, false, std::nullopt), "Device RSSI"), std::nullopt);
    d.rssi = 0;
    EXPECT_EQ(value(livePanelRows(d, true, std::nullopt), "Device RSSI"), "0 dBm");
    d.rssi = -32768;
    EXPECT_EQ(value(livePanelRows(d, true, std::nullopt), "Device RSSI"), "");
}

TEST(LivePanelRowsTest, ListAndPanelWriteTheSignalStrengthDifferently) {
    ZelmorScanner::Advertisement a;
    a.rssi = -67;
    Data d = reading();
    d.rssi = -67;
    EXPECT_EQ(localDeviceCells(a).back(), "-67dBm");
    EXPECT_EQ(value(livePanelRows(d, true, std::nullopt), "Device RSSI"), "-67 dBm");
}

}  // namespace
