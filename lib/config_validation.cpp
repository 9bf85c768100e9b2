#include "config_validation.h"

#include <fmt/format.h>

#include "config_choices.h"

namespace {

std::optional<std::string> batteryProblem(unsigned cells, uint8_t voltageChoice, double capacity) {
    unsigned const most = maximumCellCount(voltageChoice);
    if (cells < 1 || cells > most) return fmt::format("Battery Cell Count should be between 1 and {}", most);
    if (capacity < 1.0 || capacity > 20000.0) return "Battery Capacity should be between 1.0Ah and 20,000Ah";
    return std::nullopt;
}

}  // namespace

std::optional<std::string> configProblem(ZelmorConfig const& config) {
    if (config.timeZone().empty()) return "Timezone not selected";
    auto const shunts = shuntSpecifications();
    if (config.shunt() >= shunts.size()) return "Shunt not selected";
    if (config.maxShuntCurrent() > shunts[config.shunt()].amperes)
        return "Max. Shunt Current cannot be higher than the shunt nominal current";
    if (auto problem = batteryProblem(static_cast<unsigned>(config.fuelGaugeCellCount()),
                                      config.fuelGaugeBatteryVoltage(), config.fuelGaugeCapacity()))
        return problem;
    if (config.disconnectSocThreshold() >= 100) return "Battery Disconnect Threshold should be under 100%";
    if (config.reconnectSocThreshold() >= 100) return "Battery Connect Threshold should be under 100%";
    return batteryProblem(static_cast<unsigned>(config.chargeManagerCellCount()), config.chargeManagerBatteryVoltage(),
                          config.chargeManagerCapacity());
}
