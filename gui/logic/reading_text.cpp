#include "reading_text.h"

#include <cmath>

#include <fmt/core.h>

namespace {

constexpr uint32_t kStatusSecondVoltage = 1u << 2;
constexpr uint8_t kStateOfChargeNotAvailable = 255;
constexpr uint8_t kStateOfChargeFull = 100;
constexpr uint16_t kRuntimeNotAvailable = 65521;  // and every value above
constexpr uint16_t kRuntimeLongest = 64800;       // 45 days
constexpr uint16_t kMinutesPerDay = 1440;
constexpr uint16_t kMinutesPerHour = 60;

}  // namespace

bool secondVoltageShown(uint32_t status, float voltage2) {
    return (status & kStatusSecondVoltage) != 0 && !std::isnan(voltage2);
}

std::string voltageText(float volts) { return fmt::format("{:.3f} V", volts); }

std::string currentText(float amperes) { return fmt::format("{:.3f} A", amperes); }

std::string powerText(float watts) {
    return std::fabs(watts) >= 1000 ? fmt::format("{:.3f} kW", watts / 1000.0) : fmt::format("{:.2f} W", watts);
}

std::string temperatureText(float celsius) {
    std::string degrees = fmt::format("{:.0f}", celsius);
    // A reading just below zero rounds to "-0", which looks like a sign error.
    if (degrees == "-0") degrees = "0";
    return degrees + " °C";
}

bool stateOfChargeAvailable(uint8_t percent) { return percent != kStateOfChargeNotAvailable; }

std::string stateOfChargeText(uint8_t percent) {
    if (!stateOfChargeAvailable(percent)) return {};
    return percent > kStateOfChargeFull ? "unknown" : fmt::format("{} %", percent);
}

bool runtimeAvailable(uint16_t minutes) { return minutes < kRuntimeNotAvailable; }

std::string runtimeText(uint16_t minutes) {
    if (!runtimeAvailable(minutes)) return {};
    if (minutes == 0) return "under 1m";
    if (minutes > kRuntimeLongest) return "over 45d";
    if (minutes >= kMinutesPerDay)
        return fmt::format("{}d {}h", minutes / kMinutesPerDay, minutes % kMinutesPerDay / kMinutesPerHour);
    if (minutes >= kMinutesPerHour) return fmt::format("{}h {}m", minutes / kMinutesPerHour, minutes % kMinutesPerHour);
    return fmt::format("{}m", minutes);
}
