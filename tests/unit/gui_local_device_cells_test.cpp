// The row of a sighted device in the list of local devices: one cell per
// column, every reading in its format and with its edge values.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
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
    EXPECT_EQ(cells.size(), columns.size());
    for (size_t i = 0; i < columns.size(); ++i)
        if (columns[i].title == title) return cells.at(i);
    ADD_FAILURE() << "no column " << title;
    return {};
}

/// The column's cell for each value of one field of an otherwise typical sighting.
template <class Field>
void expectCells(char const* title, Field Advertisement::*field,
                 std::vector<std::pair<Field, char const*>> const& cases) {
    for (auto const& [value, text] : cases) {
        Advertisement a = sighting();
        a.*field = value;
        EXPECT_EQ(cell(a, title), text) << title << " of " << +value;
    }
}

TEST(LocalDeviceCellsTest, ColumnsInOrderWithTheirWidthsAndAlignment) {
    struct Column {
        char const* title;
        int width;
        bool rightAligned;
    };
    Column const expected[] = {
        {"Name", 120, false}, {"Model", 120, false}, {"Serial Number", 150, false}, {"FW", 50, true},
        {"V1", 75, true},     {"V2", 75, true},      {"I", 75, true},               {"P", 80, true},
        {"Wh", 90, true},     {"Ah", 90, true},      {"Temp", 60, true},            {"SoC", 70, true},
        {"Runtime", 80, true}, {"PS", 50, false},    {"Address", 130, false},       {"RSSI", 70, true},
    };
    auto const columns = localDeviceColumns();
    ASSERT_EQ(columns.size(), std::size(expected));
    for (size_t i = 0; i < columns.size(); ++i) {
        EXPECT_STREQ(columns[i].title, expected[i].title);
        EXPECT_EQ(columns[i].width, expected[i].width) << expected[i].title;
        EXPECT_EQ(columns[i].rightAligned, expected[i].rightAligned) << expected[i].title;
    }
}

TEST(LocalDeviceCellsTest, ShowsWhoTheDeviceIsAndWhereItWasSeen) {
    Advertisement a = sighting();
    EXPECT_EQ(cell(a, "Name"), "Boat");
    EXPECT_EQ(cell(a, "Model"), "Zelmor-V");
    EXPECT_EQ(cell(a, "Serial Number"), "0000000000001A2B");
    EXPECT_EQ(cell(a, "FW"), "1.32");
    EXPECT_EQ(cell(a, "Address"), "192.168.1.20");

    a.hardwareRevision = 0x31;
    a.serial = 0x00A1B2C3D4E5F6FF;
    a.firmwareVersion = 0x1A05;
    a.source = Advertisement::Source::Bluetooth;
    EXPECT_EQ(cell(a, "Model"), "Zelmor-7T");
    EXPECT_EQ(cell(a, "Serial Number"), "00A1B2C3D4E5F6FF");
    EXPECT_EQ(cell(a, "FW"), "1A.05");
    EXPECT_EQ(cell(a, "Address"), "C2:5A:4C:00:00:01");
    a.bluetoothAddress = 0x0000000000AB;
    EXPECT_EQ(cell(a, "Address"), "00:00:00:00:00:AB");
}

TEST(LocalDeviceCellsTest, SecondVoltageOnlyWhenTheDeviceMeasuresOne) {
    float const nan = std::numeric_limits<float>::quiet_NaN();
    expectCells<float>("V2", &Advertisement::voltage2, {{12.25f, "12.250 V"}, {0.0f, "0.000 V"}, {nan, ""}});
    expectCells<uint32_t>("V2", &Advertisement::status,
                          {{kStatusSecondVoltage | 1u, "12.250 V"}, {0, ""}, {~kStatusSecondVoltage, ""}});
    expectCells<float>("V1", &Advertisement::voltage1, {{12.5f, "12.500 V"}});
}

TEST(LocalDeviceCellsTest, ReadingsScaleToKiloFromAThousand) {
    expectCells<float>("I", &Advertisement::current, {{-1.25f, "-1.250 A"}});
    expectCells<float>("P", &Advertisement::power,
                       {{0.0f, "0.00 W"}, {999.99f, "999.99 W"}, {-999.99f, "-999.99 W"}, {1000.0f, "1.000 kW"},
                        {-1500.0f, "-1.500 kW"}, {12345.0f, "12.345 kW"}});
    expectCells<float>("Wh", &Advertisement::energyWh,
                       {{12.5f, "12.50 Wh"}, {-999.99f, "-999.99 Wh"}, {1000.0f, "1.000 kWh"},
                        {-2500.0f, "-2.500 kWh"}, {123456.0f, "123.456 kWh"}});
    // The charge comes in mAh and is shown in Ah.
    expectCells<int64_t>("Ah", &Advertisement::coulombMeter,
                         {{0, "0.00 Ah"}, {-250, "-0.25 Ah"}, {999990, "999.99 Ah"}, {1000000, "1.000 kAh"},
                          {-1500000, "-1.500 kAh"}});
}

TEST(LocalDeviceCellsTest, TemperatureStateOfChargeRuntimeStatusAndSignal) {
    expectCells<float>("Temp", &Advertisement::temperature,
                       {{21.4f, "21 °C"}, {-0.4f, "0 °C"}, {-0.0f, "0 °C"}, {-5.6f, "-6 °C"}});
    expectCells<uint8_t>("SoC", &Advertisement::stateOfCharge,
                         {{0, "0 %"}, {100, "100 %"}, {101, "unknown"}, {254, "unknown"}, {255, ""}});
    expectCells<uint16_t>("Runtime", &Advertisement::runtime,
                          {{0, "under 1m"}, {59, "59m"}, {60, "1h 0m"}, {1439, "23h 59m"}, {1440, "1d 0h"},
                           {1500, "1d 1h"}, {64800, "45d 0h"}, {64801, "over 45d"}, {65520, "over 45d"},
                           {65521, ""}, {65534, ""}});
    expectCells<uint8_t>("PS", &Advertisement::powerStatus, {{0, "OFF"}, {1, "ON"}, {2, "LVD"}, {8, "HTD"}, {9, ""}});
    // No space before the unit here, unlike the device window.
    expectCells<int16_t>("RSSI", &Advertisement::rssi, {{-67, "-67dBm"}, {0, "0dBm"}, {-32768, ""}});
}

}  // namespace
