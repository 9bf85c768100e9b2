// Configuration JSON is text a person wrote. Whatever it says, it is either
// refused, naming what is wrong and changing nothing, or taken: then every
// member it names reads back as it said (a number to within its parse, a
// choice's index as its text when the list has one), every other field and
// every byte no field names stay as they were, and taking it again changes
// nothing more.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config_json.h"
#include "fuzz_check.h"

namespace {

ZelmorConfig startingPoint() {
    ZelmorConfig config;
    for (size_t i = 0; i < ZelmorConfig::kSize; ++i) config.image()[i] = static_cast<uint8_t>(0x5A ^ i);
    config.timeZone("UTC");
    config.shunt(2);
    for (ConfigKey key : {ConfigKey::mfTerminalFunction, ConfigKey::dataLoggingMode, ConfigKey::batteryChemistry,
                          ConfigKey::fuelGaugeBatteryVoltage, ConfigKey::chargeManagerBatteryVoltage})
        config.setRaw(key, 1);
    return config;
}

std::optional<size_t> fieldNamed(std::string_view name) {
    for (size_t i = 0; i < kConfigFieldCount; ++i)
        if (kConfigFields[i].name == name) return i;
    return std::nullopt;
}

// Whether the field now reads as the member said.
bool readsAsSaid(ZelmorConfig const& config, ConfigKey key, ConfigJson const& said) {
    ConfigField const& field = configField(key);
    ConfigJson const now = configFieldToJson(config, key);
    switch (field.kind) {
        case ConfigFieldKind::Flag:
        case ConfigFieldKind::Text:
            return now == said;
        case ConfigFieldKind::Choice:
            return said.is_number_integer() ? config.raw(key) == said.get<int64_t>() : now == said;
        case ConfigFieldKind::U8:
        case ConfigFieldKind::I8:
        case ConfigFieldKind::U16:
            break;
    }
    // Taken when within a millionth of a step, relative to the stored integer; the slack is the scaling's rounding.
    double const stored = std::abs(now.get<double>() / field.scale);
    return std::abs(now.get<double>() - said.get<double>()) <= field.scale * 1.01e-6 * std::max(1.0, stored);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    ConfigJson const json = ConfigJson::parse(data, data + size, nullptr, false);
    if (json.is_discarded()) return 0;
    static ZelmorConfig const before = startingPoint();
    ZelmorConfig config = before;
    std::optional<std::string> const refused = applyConfigJson(config, json);
    if (refused) {
        fuzzCheck(config == before, "a refusal changes nothing");
        bool named = *refused == "The configuration must be a JSON object";
        for (auto const& member : json.items()) named = named || refused->starts_with(member.key() + ": ");
        fuzzCheck(json.is_object() ? named : *refused == "The configuration must be a JSON object",
                  "a refusal names the member");
        return 0;
    }
    fuzzCheck(json.is_object(), "only an object is taken");

    std::vector<bool> named(kConfigFieldCount, false);
    for (auto const& member : json.items()) {
        std::optional<size_t> const index = fieldNamed(member.key());
        fuzzCheck(index.has_value(), "only fields are taken");
        named[*index] = true;
    }
    // Members may repeat a name; the last one counts.
    for (size_t i = 0; i < kConfigFieldCount; ++i) {
        auto const key = static_cast<ConfigKey>(i);
        if (named[i])
            fuzzCheck(readsAsSaid(config, key, json[std::string(kConfigFields[i].name)]),
                      "a member reads back as it said");
        else
            fuzzCheck(config.raw(key) == before.raw(key) && config.text(key) == before.text(key),
                      "a field the JSON does not name stays");
    }
    ZelmorConfig again = config;
    fuzzCheck(!applyConfigJson(again, json) && again == config, "taking the JSON twice changes nothing more");
    ZelmorConfig reserved = config;
    for (size_t i = 0; i < kConfigFieldCount; ++i) {
        auto const key = static_cast<ConfigKey>(i);
        reserved.setRaw(key, before.raw(key));
        reserved.setText(key, before.text(key));
    }
    fuzzCheck(reserved == before, "bytes no field names stay");
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    std::string_view const texts[] = {
        R"({"timeZone": "Europe/Berlin", "lvdEnable": true, "lvdDisconnectThreshold": 11.8})",
        R"({"shunt": "300 A / 75 mV", "dataLoggingMode": "Every 10 seconds", "ocdTripThreshold": 150.5})",
        R"({"shunt": null, "batteryChemistry": 4, "ltdDisconnectThreshold": -10, "fullChargeCurrent": 2.55})",
        R"({"autoOffMinutes": 60, "timeZone": "Europe/Atlantis"})",
        R"({"maxShuntCurrent": 1e3, "fuelGaugeCapacity": 65535, "generatorOffDelay": 0.5})",
        R"([1, 2, 3])",
    };
    for (auto text : texts) seeds.emplace_back(text.begin(), text.end());
    std::string const whole = configToJson(startingPoint()).dump();
    seeds.emplace_back(whole.begin(), whole.end());
}
