#include "config_json.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "config_choices.h"
#include "time_zone.h"

namespace {

/// How many decimals a field's storage step has: 3 for millivolts in volts.
int decimalsOf(ConfigField const& field) {
    return std::max(0, static_cast<int>(std::lround(-std::log10(field.scale))));
}

double powerOfTen(int decimals) { return std::pow(10.0, decimals); }

/// A stored integer in the field's unit. An integer divided by an exact power
/// of ten is the double nearest to the decimal, which the JSON writer prints
/// in its shortest form: 12.5.
ConfigJson stepsToJson(int32_t stored, int decimals) {
    if (decimals == 0) return stored;
    return stored / powerOfTen(decimals);
}

std::optional<ConfigKey> keyNamed(std::string_view name) {
    for (size_t i = 0; i < kConfigFieldCount; ++i)
        if (kConfigFields[i].name == name) return static_cast<ConfigKey>(i);
    return std::nullopt;
}

ConfigJson choiceToJson(ConfigKey key, int32_t index) {
    if (key == ConfigKey::shunt) {
        if (index == kNoShunt) return nullptr;
        auto const shunts = shuntSpecifications();
        if (static_cast<size_t>(index) < shunts.size()) return shuntText(shunts[index]);
        return index;
    }
    auto const choices = configChoices(key);
    if (static_cast<size_t>(index) < choices.size()) return std::string(choices[index]);
    // An index the list does not have: shown as it is stored, and accepted back.
    return index;
}

std::string valueText(ConfigJson const& json) {
    return json.dump(-1, ' ', false, ConfigJson::error_handler_t::replace);
}

std::optional<std::string> refusal(ConfigField const& field, std::string_view why) {
    return fmt::format("{}: {}", field.name, why);
}

// Each reader checks one member against its field and stores it in `config`;
// the caller works on a copy, so a refusal leaves the original alone.

std::optional<std::string> readFlag(ZelmorConfig& config, ConfigKey key, ConfigJson const& value) {
    if (!value.is_boolean()) return refusal(configField(key), "must be true or false");
    config.setRaw(key, value.get<bool>() ? 1 : 0);
    return std::nullopt;
}

std::optional<std::string> readNumber(ZelmorConfig& config, ConfigKey key, ConfigJson const& value) {
    ConfigField const& field = configField(key);
    if (!value.is_number()) return refusal(field, "must be a number");
    int const decimals = decimalsOf(field);
    double const steps = value.get<double>() * powerOfTen(decimals);
    double const stored = std::round(steps);
    // Parsing "12.345" and scaling it back leaves a few units in the last
    // place; a value between two steps misses by far more.
    if (!std::isfinite(steps) || std::abs(steps - stored) > 1e-6 * std::max(1.0, std::abs(stored)))
        return refusal(
            field, fmt::format("{} is not a multiple of {}", valueText(value), valueText(stepsToJson(1, decimals))));
    double const lowest = std::round(field.minimum * powerOfTen(decimals));
    double const highest = std::round(field.maximum * powerOfTen(decimals));
    if (stored < lowest || stored > highest)
        return refusal(field, fmt::format("{} is outside {} to {}", valueText(value),
                                          valueText(stepsToJson(static_cast<int32_t>(lowest), decimals)),
                                          valueText(stepsToJson(static_cast<int32_t>(highest), decimals))));
    config.setRaw(key, static_cast<int32_t>(stored));
    return std::nullopt;
}

std::optional<std::string> readChoice(ZelmorConfig& config, ConfigKey key, ConfigJson const& value) {
    ConfigField const& field = configField(key);
    if (value.is_number_integer()) {
        auto const index = value.get<int64_t>();
        if (index < field.minimum || index > field.maximum)
            return refusal(field, fmt::format("{} is not a choice", index));
        config.setRaw(key, static_cast<int32_t>(index));
        return std::nullopt;
    }
    if (key == ConfigKey::shunt && value.is_null()) {
        config.setRaw(key, kNoShunt);
        return std::nullopt;
    }
    if (!value.is_string()) return refusal(field, "must be one of the choices' texts");
    std::string const text = value.get<std::string>();
    if (key == ConfigKey::shunt) {
        auto const shunts = shuntSpecifications();
        for (size_t i = 0; i < shunts.size(); ++i)
            if (shuntText(shunts[i]) == text) {
                config.setRaw(key, static_cast<int32_t>(i));
                return std::nullopt;
            }
    } else {
        auto const choices = configChoices(key);
        auto const found = std::find(choices.begin(), choices.end(), text);
        if (found != choices.end()) {
            config.setRaw(key, static_cast<int32_t>(found - choices.begin()));
            return std::nullopt;
        }
    }
    return refusal(field, fmt::format("\"{}\" is not one of the choices", text));
}

std::optional<std::string> readText(ZelmorConfig& config, ConfigKey key, ConfigJson const& value) {
    ConfigField const& field = configField(key);
    if (!value.is_string()) return refusal(field, "must be a string");
    std::string const text = value.get<std::string>();
    if (text.size() > field.size) return refusal(field, fmt::format("is longer than {} bytes", field.size));
    // The zone is the only text field; empty means not set (the clock shows UTC).
    if (!text.empty() && !isKnownTimeZone(text))
        return refusal(field, fmt::format("\"{}\" is not a time zone this system knows", text));
    config.setText(key, text);
    return std::nullopt;
}

}  // namespace

ConfigJson configFieldToJson(ZelmorConfig const& config, ConfigKey key) {
    ConfigField const& field = configField(key);
    switch (field.kind) {
        case ConfigFieldKind::Flag:
            return config.raw(key) != 0;
        case ConfigFieldKind::Choice:
            return choiceToJson(key, config.raw(key));
        case ConfigFieldKind::Text:
            return config.text(key);
        case ConfigFieldKind::U8:
        case ConfigFieldKind::I8:
        case ConfigFieldKind::U16:
            break;
    }
    return stepsToJson(config.raw(key), decimalsOf(field));
}

ConfigJson configToJson(ZelmorConfig const& config) {
    ConfigJson json = ConfigJson::object();
    for (size_t i = 0; i < kConfigFieldCount; ++i)
        json[std::string(kConfigFields[i].name)] = configFieldToJson(config, static_cast<ConfigKey>(i));
    return json;
}

std::optional<std::string> applyConfigJson(ZelmorConfig& config, ConfigJson const& json) {
    if (!json.is_object()) return "The configuration must be a JSON object";
    ZelmorConfig changed = config;
    for (auto const& [name, value] : json.items()) {
        std::optional<ConfigKey> const key = keyNamed(name);
        if (!key) return fmt::format("{}: no such field", name);
        std::optional<std::string> problem;
        switch (configField(*key).kind) {
            case ConfigFieldKind::Flag:
                problem = readFlag(changed, *key, value);
                break;
            case ConfigFieldKind::Choice:
                problem = readChoice(changed, *key, value);
                break;
            case ConfigFieldKind::Text:
                problem = readText(changed, *key, value);
                break;
            case ConfigFieldKind::U8:
            case ConfigFieldKind::I8:
            case ConfigFieldKind::U16:
                problem = readNumber(changed, *key, value);
                break;
        }
        if (problem) return problem;
    }
    config = changed;
    return std::nullopt;
}

std::vector<ConfigDifference> configDiff(ZelmorConfig const& before, ZelmorConfig const& after) {
    std::vector<ConfigDifference> differences;
    for (size_t i = 0; i < kConfigFieldCount; ++i) {
        auto const key = static_cast<ConfigKey>(i);
        ConfigJson a = configFieldToJson(before, key);
        ConfigJson b = configFieldToJson(after, key);
        if (a != b) differences.push_back({kConfigFields[i].name, std::move(a), std::move(b)});
    }
    return differences;
}
