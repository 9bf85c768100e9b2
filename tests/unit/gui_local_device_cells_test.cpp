// The row of a sighted device in the list of local devices: one cell per
// column, every reading in its format and with its edge values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "local_device_cells.h"

namespace {

using Advertisement = ZelmorScanner::Advertisement;

constexpr uint32_t kStatusSecondVoltage = 1u << 2;

Advertisement sighting() {
    Advertisement a;
    a.source = Advertisement::Source::Lan;
    a.hardwareRevision = 0x41;
    a.firmwareVersion = 0x0132;
    a.serial = 0x1A2B;
    a.name = "Boat";
    a.status = kStatusSecondVoltage;
    a.voltage1 = 12.5f;
    a.voltage2 = 12.25f;
    a.current = -1.25f;
    a.power = -15.5f;
    a.temperature = 21.4f;
    a.coulombMeter = -250;
    a.energyWh = 12.5f;
    a.powerStatus = 1;
    a.stateOfCharge = 87;
    a.runtime = 90;
    a.rssi = -67;
    uint8_t const address[4] = {192, 168, 1, 20};
    std::memcpy(&a.ipAddress, address, sizeof address);
    a.bluetoothAddress = 0xC25A4C000001;
    return a;
}

// The cell under the column of that title, so each case names what it checks.
std::string cell(Advertisement const& a, std::string const& title) {
    auto const columns = localDeviceColumns();
    std::vector<std::string> const cells = localDeviceCells(a);
    for (size_t i = 0; i < columns.size(); ++i)
        if (columns[i].title == title) return cells.at(i);
    ADD_FAILURE() << "no column " << title;
    return {};
}

TEST(LocalDeviceCellsTest, ColumnsComeInDisplayOrder) {
    std::vector<std::string> titles;
    for (auto const& column : localDeviceColumns()) titles.emplace_back(column.title);
    EXPECT_EQ(titles, (std::vector<std::string>{"Name", "Model", "Serial Number", "FW", "V1", "V2", "I", "P", "Wh",
                                                "Ah", "Temp", "SoC", "Runtime", "PS", "Address", "RSSI"}));
}

TEST(LocalDeviceCellsTest, ColumnsHaveTheirWidthsAndAlignment) {
    struct Case {
        char const* title;
        int width;
        bool rightAligned;
    };
    Case const fixed[] = {{"Name", 120, false}, {"Model", 120, false}, {"Serial Number", 150, false},
                          {"FW", 50, true},     {"V1", 75, true},      {"V2", 75, true}};
    auto const columns = localDeviceColumns();
    for (size_t i = 0; i < std::size(fixed); ++i) {
        EXPECT_STREQ(columns[i].title, fixed[i].title);
        EXPECT_EQ(columns[i].width, fixed[i].width) << fixed[i].title;
        EXPECT_EQ(columns[i].rightAligned, fixed[i].rightAligned) << fixed[i].title;
    }
    for (auto const& column : columns) {
        EXPECT_GT(column.width, 0) << column.title;
        bool const text = std::string(column.title) == "PS" || std::string(column.title) == "Address" ||
                          std::string(column.title) == "Name" || std::string(column.title) == "Model" ||
                          std::string(column.title) == "Serial Number";
        EXPECT_EQ(column.rightAligned, !text) << column.title;
    }
}

TEST(LocalDeviceCellsTest, RowHasOneCellPerColumn) {
    EXPECT_EQ(localDeviceCells(sighting()).size(), localDeviceColumns().size());
}

TEST(LocalDeviceCellsTest, ShowsWhoTheDeviceIs) {
    Advertisement a = sighting();
    EXPECT_EQ(cell(a, "Name"), "Boat");
    EXPECT_EQ(cell(a, "Model"), "Zelmor-V");
    EXPECT_EQ(cell(a, "Serial Number"), "0000000000001A2B");
    EXPECT_EQ(cell(a, "FW"), "1.32");

    a.hardwareRevision = 0x31;
    a.serial = 0x00A1B2C3D4E5F6FF;
    a.firmwareVersion = 0x1A05;
    EXPECT_EQ(cell(a, "Model"), "Zelmor-7T");
    EXPECT_EQ(cell(a, "Serial Number"), "00A1B2C3D4E5F6FF");
    EXPECT_EQ(cell(a, "FW"), "1A.05");
}

TEST(LocalDeviceCellsTest, SecondVoltageOnlyWhenTheDeviceMeasuresOne) {
    float const nan = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        uint32_t status;
        float voltage2;
        char const* cell;
    };
    Case const cases[] = {
        {kStatusSecondVoltage, 12.25f, "12.250 V"},
        {kStatusSecondVoltage | 1u, 0.0f, "0.000 V"},
        {kStatusSecondVoltage, nan, ""},
        {0, 12.25f, ""},
        {~kStatusSecondVoltage, 12.25f, ""},
    };
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.status = c.status;
        a.voltage2 = c.voltage2;
        EXPECT_EQ(cell(a, "V2"), c.cell) << c.status << " " << c.voltage2;
        EXPECT_EQ(cell(a, "V1"), "12.500 V");
    }
}

TEST(LocalDeviceCellsTest, CurrentAndPower) {
    struct Case {
        float power;
        char const* cell;
    };
    Case const cases[] = {
        {0.0f, "0.00 W"},      {-15.5f, "-15.50 W"},    {999.99f, "999.99 W"},   {-999.99f, "-999.99 W"},
        {1000.0f, "1.000 kW"}, {-1500.0f, "-1.500 kW"}, {12345.0f, "12.345 kW"},
    };
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.power = c.power;
        EXPECT_EQ(cell(a, "P"), c.cell) << c.power;
    }
    EXPECT_EQ(cell(sighting(), "I"), "-1.250 A");
}

TEST(LocalDeviceCellsTest, EnergyInWattHoursScalesToKilo) {
    struct Case {
        float energyWh;
        char const* cell;
    };
    Case const cases[] = {
        {0.0f, "0.00 Wh"},      {12.5f, "12.50 Wh"},      {999.99f, "999.99 Wh"},     {-999.99f, "-999.99 Wh"},
        {1000.0f, "1.000 kWh"}, {-2500.0f, "-2.500 kWh"}, {123456.0f, "123.456 kWh"},
    };
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.energyWh = c.energyWh;
        EXPECT_EQ(cell(a, "Wh"), c.cell) << c.energyWh;
    }
}

TEST(LocalDeviceCellsTest, ChargeInAmpHoursScalesToKilo) {
    struct Case {
        int64_t milliampHours;
        char const* cell;
    };
    Case const cases[] = {
        {0, "0.00 Ah"},         {-250, "-0.25 Ah"},       {999990, "999.99 Ah"},    {-999990, "-999.99 Ah"},
        {1000000, "1.000 kAh"}, {-1500000, "-1.500 kAh"}, {25000000, "25.000 kAh"},
    };
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.coulombMeter = c.milliampHours;
        EXPECT_EQ(cell(a, "Ah"), c.cell) << c.milliampHours;
    }
}

TEST(LocalDeviceCellsTest, TemperatureInWholeDegreesWithoutMinusZero) {
    struct Case {
        float celsius;
        char const* cell;
    };
    Case const cases[] = {
        {21.4f, "21 °C"}, {0.0f, "0 °C"}, {-0.4f, "0 °C"}, {-0.0f, "0 °C"}, {-5.6f, "-6 °C"}, {85.0f, "85 °C"},
    };
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.temperature = c.celsius;
        EXPECT_EQ(cell(a, "Temp"), c.cell) << c.celsius;
    }
}

TEST(LocalDeviceCellsTest, StateOfCharge) {
    struct Case {
        uint8_t percent;
        char const* cell;
    };
    Case const cases[] = {{0, "0 %"}, {87, "87 %"}, {100, "100 %"}, {101, "unknown"}, {254, "unknown"}, {255, ""}};
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.stateOfCharge = c.percent;
        EXPECT_EQ(cell(a, "SoC"), c.cell) << unsigned{c.percent};
    }
}

TEST(LocalDeviceCellsTest, RuntimeInTheLargestUnits) {
    struct Case {
        uint16_t minutes;
        char const* cell;
    };
    Case const cases[] = {
        {0, "under 1m"},     {1, "1m"},       {59, "59m"},     {60, "1h 0m"},     {61, "1h 1m"},
        {1439, "23h 59m"},   {1440, "1d 0h"}, {1500, "1d 1h"}, {64800, "45d 0h"}, {64801, "over 45d"},
        {65520, "over 45d"}, {65521, ""},     {65534, ""},     {65535, ""},
    };
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.runtime = c.minutes;
        EXPECT_EQ(cell(a, "Runtime"), c.cell) << c.minutes;
    }
}

TEST(LocalDeviceCellsTest, PowerStatus) {
    struct Case {
        uint8_t status;
        char const* cell;
    };
    Case const cases[] = {{0, "OFF"}, {1, "ON"}, {2, "LVD"}, {8, "HTD"}, {9, ""}, {255, ""}};
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.powerStatus = c.status;
        EXPECT_EQ(cell(a, "PS"), c.cell) << unsigned{c.status};
    }
}

TEST(LocalDeviceCellsTest, AddressIsWhereTheDeviceWasSeen) {
    Advertisement a = sighting();
    EXPECT_EQ(cell(a, "Address"), "192.168.1.20");
    a.source = Advertisement::Source::Bluetooth;
    EXPECT_EQ(cell(a, "Address"), "C2:5A:4C:00:00:01");
    a.bluetoothAddress = 0x0000000000AB;
    EXPECT_EQ(cell(a, "Address"), "00:00:00:00:00:AB");
}

TEST(LocalDeviceCellsTest, SignalStrengthWithoutASpace) {
    struct Case {
        int16_t rssi;
        char const* cell;
    };
    Case const cases[] = {{-67, "-67dBm"}, {0, "0dBm"}, {-32767, "-32767dBm"}, {-32768, ""}};
    for (auto const& c : cases) {
        Advertisement a = sighting();
        a.rssi = c.rssi;
        EXPECT_EQ(cell(a, "RSSI"), c.cell) << c.rssi;
    }
}

}  // namespace
