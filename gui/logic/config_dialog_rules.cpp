#include "config_dialog_rules.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include "hardware_revision.h"

namespace {

using K = ConfigKey;

constexpr ConfigKey kSecondVoltageFields[] = {K::disableVoltage2, K::useVoltage2ForPower,  K::lvdUseVoltage2,
                                              K::hvdUseVoltage2,  K::fuelGaugeUseVoltage2, K::generatorUseVoltage2};
constexpr ConfigKey kWifiFields[] = {K::keepAccessPointOn, K::disableWifiPowerSaving, K::wifiWatchdog};
constexpr ConfigKey kGeneratorReplaces[] = {K::lvdEnable, K::hvdEnable, K::ocdEnable, K::ltdEnable, K::htdEnable};

bool among(ConfigKey key, std::span<ConfigKey const> keys) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

/// The box a field depends on: the enable of its section, or of its group
/// within the section, which depends on the section's enable in turn.
struct Dependency {
    ConfigKey field;
    ConfigKey box;
};

constexpr Dependency kDependencies[] = {
    {K::lvdUseVoltage2, K::lvdEnable},
    {K::lvdDisconnectThreshold, K::lvdEnable},
    {K::lvdConnectThreshold, K::lvdEnable},
    {K::lvdDisconnectFilter, K::lvdEnable},
    {K::hvdUseVoltage2, K::hvdEnable},
    {K::hvdDisconnectThreshold, K::hvdEnable},
    {K::hvdConnectThreshold, K::hvdEnable},
    {K::hvdDisconnectFilter, K::hvdEnable},
    {K::ocdTripThreshold, K::ocdEnable},
    {K::ocdTripFilter, K::ocdEnable},
    {K::autoOffHours, K::autoOffEnable},
    {K::autoOffMinutes, K::autoOffEnable},
    {K::autoOffSeconds, K::autoOffEnable},
    {K::autoOnHours, K::autoOnEnable},
    {K::autoOnMinutes, K::autoOnEnable},
    {K::autoOnSeconds, K::autoOnEnable},
    {K::ltdDisconnectThreshold, K::ltdEnable},
    {K::ltdConnectThreshold, K::ltdEnable},
    {K::ltdDisconnectFilter, K::ltdEnable},
    {K::htdDisconnectThreshold, K::htdEnable},
    {K::htdConnectThreshold, K::htdEnable},
    {K::htdDisconnectFilter, K::htdEnable},
    {K::fuelGaugeUseVoltage2, K::fuelGaugeEnable},
    {K::batteryChemistry, K::fuelGaugeEnable},
    {K::fuelGaugeBatteryVoltage, K::fuelGaugeEnable},
    {K::fuelGaugeCellCount, K::fuelGaugeEnable},
    {K::fuelGaugeCapacity, K::fuelGaugeEnable},
    {K::manualFullChargeDetection, K::fuelGaugeEnable},
    {K::fullChargeVoltage, K::manualFullChargeDetection},
    {K::fullChargeCurrent, K::manualFullChargeDetection},
    {K::fullChargeFilter, K::manualFullChargeDetection},
    {K::disconnectOnSoc, K::fuelGaugeEnable},
    {K::disconnectSocThreshold, K::disconnectOnSoc},
    {K::reconnectOnSoc, K::fuelGaugeEnable},
    {K::reconnectSocThreshold, K::reconnectOnSoc},
    {K::generatorUseVoltage2, K::generatorEnable},
    {K::generatorOnByVoltage, K::generatorEnable},
    {K::generatorOnVoltage, K::generatorOnByVoltage},
    {K::generatorOnVoltageFilter, K::generatorOnByVoltage},
    {K::generatorOnBySoc, K::generatorEnable},
    {K::generatorOnSoc, K::generatorOnBySoc},
    {K::generatorOffByVoltage, K::generatorEnable},
    {K::generatorOffVoltage, K::generatorOffByVoltage},
    {K::generatorOffBySoc, K::generatorEnable},
    {K::generatorOffSoc, K::generatorOffBySoc},
    {K::generatorOffDelay, K::generatorEnable},
    {K::chargeManagerBatteryVoltage, K::chargeManagerEnable},
    {K::chargeManagerCellCount, K::chargeManagerEnable},
    {K::chargeManagerCapacity, K::chargeManagerEnable},
};

std::string_view trimmed(std::string_view text) {
    auto const blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

std::optional<double> readNumber(std::string_view text) {
    std::string number(trimmed(text));
    std::replace(number.begin(), number.end(), ',', '.');
    // from_chars takes no leading '+'.
    char const* first = number.data();
    if (!number.empty() && number.front() == '+') ++first;
    double value = 0;
    char const* const last = number.data() + number.size();
    auto const [end, error] = std::from_chars(first, last, value, std::chars_format::fixed);
    if (error != std::errc() || end != last || first == last || !std::isfinite(value)) return std::nullopt;
    return value;
}

}  // namespace

bool configFieldForModel(ConfigKey key, uint8_t revision) {
    if (among(key, kSecondVoltageFields)) return hasSecondVoltage(revision);
    if (key == K::keepEthernetLedOn) return isLanFamily(revision);
    if (among(key, kWifiFields)) return isWifiFamily(revision);
    if (key == K::useWithoutInternet) return isNetworkModel(revision);
    return true;
}

bool configFieldShown(ConfigKey key, uint8_t revision, ZelmorConfig const& config) {
    if (config.generatorEnable() && among(key, kGeneratorReplaces)) return false;
    return configFieldForModel(key, revision);
}

bool configPageShown(ConfigPage const& page, uint8_t revision) {
    return std::any_of(page.rows.begin(), page.rows.end(),
                       [revision](ConfigRow const& row) { return configFieldForModel(row.key, revision); });
}

bool configFieldEnabled(ConfigKey key, ZelmorConfig const& config) {
    for (Dependency const& dependency : kDependencies)
        if (dependency.field == key)
            return config.raw(dependency.box) != 0 && configFieldEnabled(dependency.box, config);
    return true;
}

std::span<ConfigKey const> generatorReplacedEnables() { return kGeneratorReplaces; }

void applyGeneratorControl(ZelmorConfig& config) {
    if (!config.generatorEnable()) return;
    for (ConfigKey key : kGeneratorReplaces) config.setRaw(key, 0);
}

int configDecimals(ConfigKey key) { return configField(key).scale >= 0.1 ? 1 : 3; }

std::string configNumberText(ZelmorConfig const& config, ConfigKey key) {
    return fmt::format("{:.{}f}", config.value(key), configDecimals(key));
}

std::optional<std::string> setConfigNumber(ZelmorConfig& config, ConfigKey key, std::string_view text,
                                           std::string_view label, std::string_view page) {
    ConfigField const& field = configField(key);
    std::optional<double> const value = readNumber(text);
    if (!value || *value < field.minimum || *value > field.maximum)
        return fmt::format("\"{}\" on page \"{}\" should be a number from {} to {}", label, page, field.minimum,
                           field.maximum);
    config.setValue(key, *value);
    return std::nullopt;
}
