#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zelmor_scanner.h"

/// The manufacturer-specific data that the Bluetooth LE models put in their
/// advertisements, under the company identifier 0x04C9: the device's identity
/// and latest readings packed into 29 bytes with bit fields and compact floats.
/// docs/bluetooth-le-discovery.md gives the layout.
constexpr uint16_t kZelmorCompanyId = 0x04C9;
constexpr size_t kManufacturerDataSize = 29;

using ManufacturerData = std::array<uint8_t, kManufacturerDataSize>;

/// Fills the identity and reading fields of `out` (revision, firmware, clock,
/// status, voltages, current, power, temperature, meters, power status, state
/// of charge, runtime). False, leaving `out` untouched, unless `length` is
/// exactly 29 and the revision is a Bluetooth LE model's (0x2_ or 0x3_).
bool decodeManufacturerData(uint8_t const* data, size_t length, ZelmorScanner::Advertisement& out);

/// The 29 bytes for those fields of `readings`; values out of a field's range
/// are clamped to it.
ManufacturerData encodeManufacturerData(ZelmorScanner::Advertisement const& readings);

/// IEEE-754 binary16, the compact float of the format: round to nearest even,
/// overflow to infinity, NaN kept.
uint16_t floatToHalf(float value);
float halfToFloat(uint16_t half);
