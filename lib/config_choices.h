#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "zelmor_config.h"

// What the configuration's choice fields choose from: the texts the device
// window shows (kept exactly, spellings included) and the shunts a device
// can measure with. A choice field stores the index into its list.

/// One shunt a device can measure with: its nominal current, its voltage
/// drop at that current, and whether it is the one built into the device.
struct ShuntSpecification {
    uint16_t amperes;
    uint16_t millivolts;
    bool integrated;
};

/// Stored in `shunt` when no shunt is chosen.
inline constexpr uint8_t kNoShunt = 0xFF;

std::span<ShuntSpecification const> shuntSpecifications();

/// "%u A / %u mV%s", with " (integrated)" for the built-in shunt.
std::string shuntText(ShuntSpecification const& shunt);

/// The texts of a choice field's list; empty for other fields and for
/// `shunt` (whose texts come from shuntText).
std::span<std::string_view const> configChoices(ConfigKey key);

/// The most cells a battery of the "Battery Voltage" choice `voltageChoice`
/// can have: two-volt lead-acid cells give the most, so the bound is half
/// the nominal voltage; "Custom" allows up to 32.
unsigned maximumCellCount(uint8_t voltageChoice);
