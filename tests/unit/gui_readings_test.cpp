// The readings as the windows show them: the cells of a sighted device in the
// list of local devices and the rows of the device window's live panel. Both
// use the formats of reading_text.h, whose edges are checked in the cells.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "live_panel_rows.h"
#include "local_device_cells.h"

namespace {

using Advertisement = ZelmorScanner::Advertisement;
using Data = Zelmor::MonitorData;

constexpr uint32_t kStatusSecondVoltage = 1u << 2;
constexpr uint32_t kNovember14th2023At221320Utc = 1700000000;

Advertisement sighting() {
    Advertisement a;
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
    a.ipAddress = htonl(0xC0A80114);  // 192.168.1.20
    a.bluetoothAddress = 0xC25A4C000001;
    return a;
}

// A reading with every row of the panel on display.
Data reading() {
    Data d;
    d.time = kNovember14th2023At221320Utc;
    d.status = kStatusSecondVoltage;
    d.voltage1 = 12.5f;
    d.voltage2 = 12.25f;
    d.coulombMeter = 1500;
    d.energyMeter = 12340;
    d.stateOfCharge = 87;
    d.runtime = 90;
    d.rssi = -67;
    return d;
}

/// What the list shows in the column titled `title`.
std::string shownAs(Advertisement const& a, std::string const& title) {
    auto const columns = localDeviceColumns();
    std::vector<std::string> const cells = localDeviceCells(a);
    for (size_t i = 0; i < columns.size(); ++i)
        if (columns[i].title == title) return cells.at(i);
    return "(no column)";
}

/// What the panel shows in the row labelled `label`; nothing without that row.
std::optional<std::string> shownAs(Data const& d, std::string const& label, std::string_view timeZone = {}) {
    for (auto const& row : livePanelRows(d, true, timeZone))
        if (row.label == label) return row.value;
    return std::nullopt;
}

/// What is shown as `name` for each value of one field of an otherwise typical
/// sighting or reading.
template <class Reading, class Field>
void expectShown(Reading const& typical, char const* name, Field Reading::*field,
                 std::vector<std::pair<Field, std::optional<std::string>>> const& cases) {
    for (auto const& [value, text] : cases) {
        Reading changed = typical;
        changed.*field = value;
        EXPECT_EQ(shownAs(changed, name), text) << name << " of " << testing::PrintToString(value);
    }
}

TEST(LocalDeviceCellsTest, ColumnsInOrderAndTheCellsOfATypicalSighting) {
    // Each column as its title, its width and "<" for left or ">" for right.
    std::string layout;
    for (ListColumn const& column : localDeviceColumns())
        layout += fmt::format("{} {}{} ", column.title, column.width, column.rightAligned ? '>' : '<');
    EXPECT_EQ(layout,
              "Name 120< Model 120< Serial Number 150< FW 50> V1 75> V2 75> I 75> P 80> Wh 90> Ah 90> Temp 60> "
              "SoC 70> Runtime 80> PS 50< Address 130< RSSI 70> ");
    EXPECT_EQ(localDeviceCells(sighting()),
              (std::vector<std::string>{"Boat", "Zelmor-V", "0000000000001A2B", "1.32", "12.500 V", "12.250 V",
                                        "-1.250 A", "-15.50 W", "12.50 Wh", "-0.25 Ah", "21 °C", "87 %", "1h 30m", "ON",
                                        "192.168.1.20", "-67dBm"}));
}

TEST(LocalDeviceCellsTest, EdgeValuesOfEachColumn) {
    Advertisement const a = sighting();
    expectShown(a, "FW", &Advertisement::firmwareVersion, {{0x1A05, "1A.05"}, {0x02FF, "2.FF"}});
    expectShown(a, "Address", &Advertisement::source, {{Advertisement::Source::Bluetooth, "C2:5A:4C:00:00:01"}});
    expectShown(a, "V2", &Advertisement::voltage2, {{std::numeric_limits<float>::quiet_NaN(), ""}});
    expectShown(a, "V2", &Advertisement::status, {{0, ""}, {~kStatusSecondVoltage, ""}});
    expectShown(a, "P", &Advertisement::power, {{999.99f, "999.99 W"}, {1000, "1.000 kW"}, {-1500, "-1.500 kW"}});
    expectShown(a, "Wh", &Advertisement::energyWh,
                {{999.99f, "999.99 Wh"}, {1000, "1.000 kWh"}, {-2500, "-2.500 kWh"}});
    // The charge comes in mAh.
    expectShown(a, "Ah", &Advertisement::coulombMeter,
                {{999990, "999.99 Ah"}, {1000000, "1.000 kAh"}, {-1500000, "-1.500 kAh"}});
    expectShown(a, "Temp", &Advertisement::temperature, {{-0.4f, "0 °C"}, {-0.0f, "0 °C"}, {-5.6f, "-6 °C"}});
    expectShown(a, "SoC", &Advertisement::stateOfCharge, {{100, "100 %"}, {101, "unknown"}, {255, ""}});
    std::vector<std::pair<uint16_t, std::optional<std::string>>> const runtimes = {
        {0, "under 1m"},     {1, "1m"},           {59, "59m"},     {60, "1h 0m"},
        {1439, "23h 59m"},   {1440, "1d 0h"},     {2999, "2d 1h"}, {64800, "45d 0h"},
        {64801, "over 45d"}, {65520, "over 45d"}, {65521, ""},     {65535, ""},
    };
    expectShown(a, "Runtime", &Advertisement::runtime, runtimes);
    expectShown(a, "PS", &Advertisement::powerStatus, {{0, "OFF"}, {8, "HTD"}, {9, ""}});
    // No space before the unit here, unlike the device window.
    expectShown(a, "RSSI", &Advertisement::rssi, {{-32768, ""}});
}

TEST(LivePanelRowsTest, RowsInOrderLeavingOutWhatTheDeviceDoesNotReport) {
    std::vector<std::string> shown;
    for (auto const& row : livePanelRows(reading(), true, {})) shown.push_back(row.label + ": " + row.value);
    EXPECT_EQ(shown, (std::vector<std::string>{"Voltage 1: 12.500 V", "Voltage 2: 12.250 V", "Current: 0.000 A",
                                               "Power: 0.00 W", "Energy Meter: 12.34 Wh", "Coulomb Meter: 1.500 Ah",
                                               "Battery SoC: 87 %", "Battery Runtime: 1h 30m", "Temperature: 0 °C",
                                               "Power Status: OFF", "Device Clock: 10:13 PM Nov 14, 2023",
                                               "Device RSSI: -67 dBm"}));
    Data const d = reading();
    // One "Voltage" row stands for both when there is no second voltage.
    expectShown(d, "Voltage 2", &Data::status, {{0, std::nullopt}});
    expectShown(d, "Voltage", &Data::status, {{0, "12.500 V"}, {kStatusSecondVoltage, std::nullopt}});
    expectShown(d, "Battery SoC", &Data::stateOfCharge, {{255, std::nullopt}});
    expectShown(d, "Battery Runtime", &Data::runtime, {{65521, std::nullopt}});
    expectShown(d, "Device RSSI", &Data::rssi, {{-32768, ""}});
    EXPECT_EQ(livePanelRows(d, false, {}).back().label, "Device Clock");
}

TEST(LivePanelRowsTest, MetersCountedInMilliunits) {
    expectShown(reading(), "Energy Meter", &Data::energyMeter,
                {{-999990, "-999.99 Wh"}, {1000000, "1.000 kWh"}, {-1000000, "-1.000 kWh"}});
    // From a million the charge is divided by a million and still written "Ah".
    expectShown(reading(), "Coulomb Meter", &Data::coulombMeter,
                {{999999, "999.999 Ah"}, {1000000, "1.000 Ah"}, {-1000000, "-1.000 Ah"}});
}

TEST(LivePanelRowsTest, DeviceClockInTheDeviceTimeZone) {
    // Berlin moves from 02:00 CET to 03:00 CEST at 01:00 UTC on 2025-03-30,
    // and back to 02:00 at 01:00 UTC on 2025-10-26.
    std::tuple<uint32_t, char const*, char const*> const clocks[] = {
        {1700000000, "Europe/Berlin", "11:13 PM Nov 14, 2023"},
        {1700000000, "America/New_York", "05:13 PM Nov 14, 2023"},
        {1700000000, "Asia/Kolkata", "03:43 AM Nov 15, 2023"},
        {1743296399, "Europe/Berlin", "01:59 AM Mar 30, 2025"},
        {1743296400, "Europe/Berlin", "03:00 AM Mar 30, 2025"},
        {1761440399, "Europe/Berlin", "02:59 AM Oct 26, 2025"},
        {1761440400, "Europe/Berlin", "02:00 AM Oct 26, 2025"},
        {1700000000, "", "10:13 PM Nov 14, 2023"},
        {1700000000, "Mars/Olympus_Mons", "10:13 PM Nov 14, 2023"},
    };
    for (auto const& [time, zone, text] : clocks) {
        SCOPED_TRACE(zone);
        Data d = reading();
        d.time = time;
        EXPECT_EQ(shownAs(d, "Device Clock", zone), text) << time;
    }
    // A clock that was never set counts from 0.
    expectShown(reading(), "Device Clock", &Data::time, {{1, "12:00 AM Jan 01, 1970"}, {0, "not set"}});
}

}  // namespace
