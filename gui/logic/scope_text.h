#pragma once

#include <cstdint>
#include <string>

// The texts of the scope display: tick labels of its vertical scales, the
// readouts under the cursors, the time per division and the time labels.
// Labels and readouts of a million or more divide by 1000 before the "M"
// prefix, as they always have: charts saved earlier read the same.

/// A tick label: "0", or the value with a u/m/k/M prefix and the decimals
/// that resolve 10^`labelExponent`, at most `labelMaxDecimals`.
std::string tickLabel(float value, int16_t labelExponent, uint16_t labelMaxDecimals);

/// A cursor readout with its unit, e.g. "12.500 V" or with `siPrefix`
/// "250.0 mA"; empty for NaN.
std::string readoutText(std::string const& unit, int exponent, int maxDecimals, bool siPrefix, float value);

/// The time per division as shown beside "Time Scale:", e.g. "30m / div".
std::string timePerDivisionText(uint64_t step);

/// A time-axis label: the time of day, a line break and the date, in the
/// device's wall-clock time (no time-zone shift): "02:30:00 PM\n11/24/26"
/// in the C locale. A time the calendar cannot show reads "invalid date".
std::string timeLabel(uint64_t microseconds);
