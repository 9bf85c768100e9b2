#pragma once

#include <cstdint>
#include <optional>

namespace sim {

/// Seconds between data log records for the configuration's "Data Logging
/// Mode" choice; none for "Disabled" and for a choice the device does not know.
std::optional<uint32_t> loggingIntervalSeconds(uint8_t mode);

/// The mode whose interval is nearest `seconds` (the shorter on a tie);
/// "Disabled" for 0.
uint8_t nearestLoggingMode(uint32_t seconds);

}  // namespace sim
