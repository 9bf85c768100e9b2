#pragma once

#include <cstdint>

// The hardware revision byte: its high nibble selects the model family, the low
// nibble the variant. 0x1_ LAN, 0x2_ and 0x3_ Bluetooth LE only, 0x4_ WiFi.

constexpr uint8_t modelFamily(uint8_t revision) { return revision & 0xF0; }

constexpr bool isLanFamily(uint8_t revision) { return modelFamily(revision) == 0x10; }
constexpr bool isWifiFamily(uint8_t revision) { return modelFamily(revision) == 0x40; }
/// LAN and WiFi models: reached over TCP, polled for live data.
constexpr bool isNetworkModel(uint8_t revision) { return isLanFamily(revision) || isWifiFamily(revision); }
/// Every model but the 0x3_ family measures a second voltage.
constexpr bool hasSecondVoltage(uint8_t revision) { return modelFamily(revision) != 0x30; }

/// "Zelmor-K", "Zelmor", "Zelmor-7T", "Zelmor-V", or "unknown".
char const* modelName(uint8_t revision);
