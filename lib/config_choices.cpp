#include "config_choices.h"

#include <array>

#include <fmt/format.h>

namespace {

constexpr std::array<ShuntSpecification, 13> kShunts{{
    {500, 50, true},
    {50, 75, false},
    {100, 75, false},
    {200, 75, false},
    {300, 75, false},
    {500, 75, false},
    {1000, 75, false},
    {2000, 75, false},
    {100, 50, false},
    {200, 50, false},
    {300, 50, false},
    {500, 50, false},
    {1000, 50, false},
}};

constexpr std::string_view kMfTerminalFunctions[] = {"Data Stream Ouput", "Temperature Sensor", "Push Button Input",
                                                     "Communication"};
constexpr std::string_view kDataLoggingModes[] = {"Disabled",         "Every second",     "Every 2 seconds",
                                                  "Every 5 seconds",  "Every 10 seconds", "Every 20 seconds",
                                                  "Every 30 seconds", "Every 60 seconds"};
constexpr std::string_view kBatteryChemistries[] = {"Lead Acid - Flooded", "Lead Acid - AGM", "Lithium Iron Phosphate",
                                                    "Lithium Ion", "Lithium Polymer"};
constexpr std::string_view kBatteryVoltages[] = {"6 Volts", "12 Volts", "24 Volts", "36 Volts", "48 Volts", "Custom"};
constexpr unsigned kNominalVolts[] = {6, 12, 24, 36, 48};
constexpr unsigned kCustomCellCount = 32;

}  // namespace

std::span<ShuntSpecification const> shuntSpecifications() { return kShunts; }

std::string shuntText(ShuntSpecification const& shunt) {
    return fmt::format("{} A / {} mV{}", shunt.amperes, shunt.millivolts, shunt.integrated ? " (integrated)" : "");
}

std::span<std::string_view const> configChoices(ConfigKey key) {
    if (key == ConfigKey::mfTerminalFunction) return kMfTerminalFunctions;
    if (key == ConfigKey::dataLoggingMode) return kDataLoggingModes;
    if (key == ConfigKey::batteryChemistry) return kBatteryChemistries;
    if (key == ConfigKey::fuelGaugeBatteryVoltage || key == ConfigKey::chargeManagerBatteryVoltage)
        return kBatteryVoltages;
    return {};
}

unsigned maximumCellCount(uint8_t voltageChoice) {
    if (voltageChoice < std::size(kNominalVolts)) return kNominalVolts[voltageChoice] / 2;
    return kCustomCellCount;
}
