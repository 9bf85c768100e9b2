#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "battery_model.h"

namespace sim {

/// Seconds since 1970-01-01 UTC.
using DeviceClock = std::function<int64_t()>;

/// What a WiFi model keeps: one network (0x61 replaces it), or a list of
/// known networks (0x70-0x72, extra status bit 1).
enum class WifiKind : uint8_t { OneNetwork, NetworkList };

/// Measurements a device shows whatever its battery does: tests that check
/// how a host prints exact values give them here.
struct HeldReading {
    float voltage1 = 0;
    float voltage2 = 0;
    float current = 0;
    float power = 0;
    float temperature = 0;
};

/// Everything that makes one simulated device what it is at power-on.
struct SimulatedDeviceConfig {
    /// 0x10 LAN, 0x40/0x41 WiFi, 0x2_ and 0x3_ Bluetooth LE only.
    uint8_t hardwareRevision = 0x41;
    /// BCD digits: 0x0132 is shown as "1.32".
    uint16_t firmwareVersion = 0x0132;
    uint64_t serial = 100001;
    /// Empty: the model name.
    std::string name;
    /// Empty: no password of that kind.
    std::string userPassword;
    std::string masterPassword;
    uint32_t logIntervalSeconds = 60;
    /// Days of data log recorded before the device was handed over.
    uint32_t historyDays = 0;
    uint64_t seed = 1;
    /// Empty: the system clock.
    DeviceClock clock;
    /// a.b.c.d, most significant first.
    std::array<uint8_t, 4> ipAddress{127, 0, 0, 1};
    std::array<uint8_t, 6> bluetoothAddress{0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01};
    /// Largest payload of one answer frame; longer answers are split.
    size_t maxFramePayload = 4096;
    /// The network a WiFi model has joined at power-on; empty: none.
    std::string wifiNetwork = "HarbourNet";
    WifiKind wifiKind = WifiKind::NetworkList;
    BatteryChemistry chemistry = BatteryChemistry::LiFePO4;
    double capacityAh = 200;
    /// Shown in the live data (0x04, announcements, Bluetooth LE pushes) and
    /// logged instead of the battery's measurements; the meters, statistics
    /// and relay still follow the battery.
    std::optional<HeldReading> heldReading;
};

}  // namespace sim
