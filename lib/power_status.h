#pragma once

#include <cstdint>

/// The short name of a device's power status code, as the live readings and
/// the data log carry it: "OFF", "ON", "LVD", "OCD", "HVD", "FGD", "NCH",
/// "LTD", "HTD" for 0 to 8, and an empty text for any other code.
char const* powerStatusText(uint8_t status);
