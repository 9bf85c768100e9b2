// The device window's live panel: which rows a reading shows, in which order,
// and each value in its format with its edge values.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "live_panel_rows.h"

namespace {

using Data = Zelmor::MonitorData;
using Text = std::optional<std::string>;

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

/// The row's value, nothing when the row is not shown.
Text value(Data const& d, std::string const& label, bool rssiAvailable = true,
           std::optional<int> utcOffsetMinutes = std::nullopt) {
    for (auto const& row : livePanelRows(d, rssiAvailable, utcOffsetMinutes))
        if (row.label == label) return row.value;
    return std::nullopt;
}

/// The row's value for each value of one field of an otherwise typical reading.
template <class Field>
void expectRows(char const* label, Field Data::*field, std::vector<std::pair<Field, Text>> const& cases) {
    for (auto const& [fieldValue, text] : cases) {
        Data d = reading();
        d.*field = fieldValue;
        EXPECT_EQ(value(d, label), text) << label << " of " << +fieldValue;
    }
}

TEST(LivePanelRowsTest, RowsInOrderAsTheDeviceReportsThem) {
    EXPECT_EQ(labels(livePanelRows(reading(), true, std::nullopt)),
              (std::vector<std::string>{"Voltage 1", "Voltage 2", "Current", "Power", "Energy Meter", "Coulomb Meter",
                                        "Battery SoC", "Battery Runtime", "Temperature", "Power Status",
                                        "Device Clock", "Device RSSI"}));
    Data little = reading();
    little.status = 0;
    little.stateOfCharge = 255;
    little.runtime = 65535;
    EXPECT_EQ(labels(livePanelRows(little, false, std::nullopt)),
              (std::vector<std::string>{"Voltage", "Current", "Power", "Energy Meter", "Coulomb Meter", "Temperature",
                                        "Power Status", "Device Clock"}));
    EXPECT_EQ(value(little, "Voltage"), "12.500 V");
    EXPECT_EQ(value(reading(), "Current"), "-1.250 A");
}

TEST(LivePanelRowsTest, OneVoltageRowUnlessASecondVoltageIsMeasured) {
    float const nan = std::numeric_limits<float>::quiet_NaN();
    expectRows<float>("Voltage 2", &Data::voltage2, {{12.25f, "12.250 V"}, {0.0f, "0.000 V"}, {nan, std::nullopt}});
    expectRows<uint32_t>("Voltage 2", &Data::status,
                         {{kStatusSecondVoltage | 3u, "12.250 V"}, {0, std::nullopt}, {~kStatusSecondVoltage, Text()}});
    expectRows<uint32_t>("Voltage 1", &Data::status, {{kStatusSecondVoltage, "12.500 V"}, {0, std::nullopt}});
    expectRows<uint32_t>("Voltage", &Data::status, {{kStatusSecondVoltage, std::nullopt}, {0, "12.500 V"}});
}

TEST(LivePanelRowsTest, PowerAndTheMetersWithTheirDeliberateUnits) {
    expectRows<float>("Power", &Data::power,
                      {{0.0f, "0.00 W"}, {999.99f, "999.99 W"}, {-999.99f, "-999.99 W"}, {1000.0f, "1.000 kW"},
                       {-1500.0f, "-1.500 kW"}, {12345.0f, "12.345 kW"}});
    // Counted in mWh.
    expectRows<int64_t>("Energy Meter", &Data::energyMeter,
                        {{0, "0.00 Wh"}, {12340, "12.34 Wh"}, {-999990, "-999.99 Wh"}, {1000000, "1.000 kWh"},
                         {1234567, "1.235 kWh"}, {-1500000, "-1.500 kWh"}});
    // Counted in mAh; from a million the figure is divided by a million and still written "Ah".
    expectRows<int64_t>("Coulomb Meter", &Data::coulombMeter,
                        {{0, "0.000 Ah"}, {-250, "-0.250 Ah"}, {999999, "999.999 Ah"}, {-999999, "-999.999 Ah"},
                         {1000000, "1.000 Ah"}, {-1000000, "-1.000 Ah"}, {2500000, "2.500 Ah"}});
}

TEST(LivePanelRowsTest, StateOfChargeRuntimeTemperatureAndPowerStatus) {
    expectRows<uint8_t>("Battery SoC", &Data::stateOfCharge,
                        {{0, "0 %"}, {100, "100 %"}, {101, "unknown"}, {254, "unknown"}, {255, std::nullopt}});
    expectRows<uint16_t>("Battery Runtime", &Data::runtime,
                         {{0, "under 1m"}, {59, "59m"}, {60, "1h 0m"}, {1439, "23h 59m"}, {1440, "1d 0h"},
                          {2999, "2d 1h"}, {64800, "45d 0h"}, {64801, "over 45d"}, {65520, "over 45d"},
                          {65521, std::nullopt}, {65534, std::nullopt}, {65535, std::nullopt}});
    expectRows<float>("Temperature", &Data::temperature,
                      {{21.4f, "21 °C"}, {-0.4f, "0 °C"}, {-5.6f, "-6 °C"}, {99.5f, "100 °C"}});
    expectRows<uint8_t>("Power Status", &Data::powerStatus, {{0, "OFF"}, {2, "LVD"}, {8, "HTD"}, {9, ""}});
}

TEST(LivePanelRowsTest, DeviceClockInTheDeviceTimeZone) {
    struct Case {
        uint32_t time;
        std::optional<int> utcOffsetMinutes;
        char const* text;
    };
    Case const cases[] = {
        {kNovember14th2023At221320Utc, std::nullopt, "10:13 PM Nov 14, 2023"},
        {kNovember14th2023At221320Utc, 120, "12:13 AM Nov 15, 2023"},
        {kNovember14th2023At221320Utc, -300, "05:13 PM Nov 14, 2023"},
        {kNovember14th2023At221320Utc, 330, "03:43 AM Nov 15, 2023"},
        {1, std::nullopt, "12:00 AM Jan 01, 1970"},
        {0, 120, "not set"},
    };
    for (auto const& c : cases) {
        Data d = reading();
        d.time = c.time;
        EXPECT_EQ(value(d, "Device Clock", false, c.utcOffsetMinutes), c.text)
            << c.time << " " << c.utcOffsetMinutes.value_or(0);
    }
}

TEST(LivePanelRowsTest, SignalStrengthOnlyWhenTheLinkMeasuresIt) {
    Data d = reading();
    EXPECT_EQ(value(d, "Device RSSI"), "-67 dBm");
    EXPECT_EQ(value(d, "Device RSSI", false), std::nullopt);
    d.rssi = -32768;
    EXPECT_EQ(value(d, "Device RSSI"), "");
}

}  // namespace
