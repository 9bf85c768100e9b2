#include "scope_text.h"

#include <algorithm>
#include <cmath>
#include <ctime>

#include <fmt/format.h>

namespace {

int decimals(int wanted, int maximum) { return std::min(std::max(wanted, 0), maximum); }

/// `value` with `digits` decimals and `suffix` straight after it.
std::string fixed(double value, int digits, std::string const& suffix) {
    return fmt::format("{:.{}f}{}", value, digits, suffix);
}

}  // namespace

std::string tickLabel(float value, int16_t labelExponent, uint16_t labelMaxDecimals) {
    double const v = value;
    double const magnitude = std::fabs(v);
    int const e = labelExponent;
    int const d = labelMaxDecimals;
    if (v == 0) return "0";
    if (magnitude < 0.001) return fixed(v * 1e6, decimals(-e - 6, d), "u");
    if (magnitude < 1) return fixed(v * 1000, decimals(-e - 3, d), "m");
    if (magnitude >= 1e6) return fixed(v / 1000, decimals(6 - e, d), "M");
    if (magnitude >= 1000) return fixed(v / 1000, decimals(3 - e, d), "k");
    return fixed(v, std::min(e < 1 ? -e : 0, d), "");
}

std::string readoutText(std::string const& unit, int exponent, int maxDecimals, bool siPrefix, float value) {
    double const v = value;
    double const magnitude = std::fabs(v);
    if (std::isnan(v)) return "";
    if (v == 0) return "0 " + unit;
    if (siPrefix && magnitude < 0.001) return fixed(v * 1e6, decimals(-6 - exponent, maxDecimals), " u" + unit);
    if (siPrefix && magnitude < 1) return fixed(v * 1000, decimals(-3 - exponent, maxDecimals), " m" + unit);
    if (siPrefix && magnitude >= 1e6) return fixed(v / 1000, decimals(6 - exponent, maxDecimals), " M" + unit);
    if (siPrefix && magnitude >= 1000) return fixed(v / 1000, decimals(3 - exponent, maxDecimals), " k" + unit);
    return fixed(v, decimals(-exponent, maxDecimals), " " + unit);
}

std::string timePerDivisionText(uint64_t step) {
    if (step <= 999) return fmt::format("{}us / div", step);
    if (step <= 999'999) return fmt::format("{}ms / div", step / 1000);
    if (step < 60'000'000) return fmt::format("{}s / div", step / 1'000'000);
    if (step <= 3'599'999'999) return fmt::format("{}m / div", step / 60'000'000);
    if (step > 86'399'999'999) return fmt::format("{}d / div", step / 86'400'000'000);
    return fmt::format("{}h / div", step / 3'600'000'000);
}

std::string timeLabel(uint64_t microseconds) {
    // The stamps hold the device's wall-clock time already: shown as UTC,
    // they read as the device wrote them.
    std::time_t const seconds = static_cast<std::time_t>(microseconds / 1'000'000);
    std::tm calendar{};
    char text[64];
    if (!::gmtime_r(&seconds, &calendar) || std::strftime(text, sizeof text, "%I:%M:%S %p\n%x", &calendar) == 0)
        return "invalid date";
    return text;
}
