#pragma once

#include <cstdint>
#include <string>

// The readings as both the list of local devices and the device window show
// them. Where the two differ (signal strength, the energy and charge meters)
// each keeps its own format next to its other cells.

/// Whether a second voltage is on display: the device says it measures one
/// (status bit 2) and the value is a number.
bool secondVoltageShown(uint32_t status, float voltage2);

/// "12.345 V".
std::string voltageText(float volts);
/// "-1.250 A".
std::string currentText(float amperes);
/// "999.99 W" below 1000 W in magnitude, else "-1.500 kW".
std::string powerText(float watts);
/// "21 °C", never "-0 °C".
std::string temperatureText(float celsius);
/// Whether the device estimates a state of charge (any value but 255).
bool stateOfChargeAvailable(uint8_t percent);
/// "87 %", "unknown" from 101 to 254, and empty when not available.
std::string stateOfChargeText(uint8_t percent);
/// Whether the device estimates a runtime (below 65521 minutes).
bool runtimeAvailable(uint16_t minutes);
/// "under 1m", "59m", "23h 59m", "45d 0h", "over 45d"; empty when not available.
std::string runtimeText(uint16_t minutes);
