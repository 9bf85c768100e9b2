#include "local_device_cells.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cmath>
#include <cstdint>

#include <fmt/core.h>

#include "bluetooth_address.h"
#include "hardware_revision.h"
#include "power_status.h"
#include "reading_text.h"

namespace {

using Advertisement = ZelmorScanner::Advertisement;

constexpr int16_t kRssiNotAvailable = -32768;

constexpr ListColumn kColumns[] = {
    {"Name", 120, false},  {"Model", 120, false}, {"Serial Number", 150, false},
    {"FW", 50, true},      {"V1", 75, true},      {"V2", 75, true},
    {"I", 75, true},       {"P", 80, true},       {"Wh", 90, true},
    {"Ah", 90, true},      {"Temp", 60, true},    {"SoC", 70, true},
    {"Runtime", 80, true}, {"PS", 50, false},     {"Address", 130, false},
    {"RSSI", 70, true},
};

// The list counts the meters in Wh and Ah, switching to kWh and kAh once the
// figure would need four digits before the point.
std::string energyText(float wattHours) {
    return std::fabs(wattHours) >= 1000 ? fmt::format("{:.3f} kWh", wattHours / 1000.0)
                                        : fmt::format("{:.2f} Wh", wattHours);
}

std::string chargeText(int64_t milliampHours) {
    double const ampHours = static_cast<double>(milliampHours) / 1000;
    return std::fabs(ampHours) >= 1000 ? fmt::format("{:.3f} kAh", ampHours / 1000)
                                       : fmt::format("{:.2f} Ah", ampHours);
}

std::string addressText(Advertisement const& a) {
    return a.source == Advertisement::Source::Bluetooth ? formatBluetoothAddress(a.bluetoothAddress)
                                                        : ipv4Text(a.ipAddress);
}

std::string rssiText(int16_t rssi) { return rssi == kRssiNotAvailable ? std::string() : fmt::format("{}dBm", rssi); }

}  // namespace

std::string ipv4Text(uint32_t networkOrder) {
    char text[INET_ADDRSTRLEN] = {};
    in_addr address{};
    address.s_addr = networkOrder;
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

std::span<ListColumn const> localDeviceColumns() { return kColumns; }

std::vector<std::string> localDeviceCells(Advertisement const& a) {
    return {
        a.name,
        modelName(a.hardwareRevision),
        fmt::format("{:016X}", a.serial),
        fmt::format("{:X}.{:02X}", a.firmwareVersion >> 8, a.firmwareVersion & 0xFF),
        voltageText(a.voltage1),
        secondVoltageShown(a.status, a.voltage2) ? voltageText(a.voltage2) : std::string(),
        currentText(a.current),
        powerText(a.power),
        energyText(a.energyWh),
        chargeText(a.coulombMeter),
        temperatureText(a.temperature),
        stateOfChargeText(a.stateOfCharge),
        runtimeText(a.runtime),
        powerStatusText(a.powerStatus),
        addressText(a),
        rssiText(a.rssi),
    };
}
