#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "zelmor_config.h"

// The configuration as JSON, the form people keep and edit it in: one member
// per field of the image, named as in ZELMOR_CONFIG_FIELDS, in the field's
// unit. Flags are booleans, choices their texts (the shunt its shuntText, or
// null for none; an index the list does not have as its number, which is
// accepted back), the time zone a string, numbers the exact decimal of the
// stored integer (12.5, never 12.500000001). docs/config-image.md has the
// fields and zelmorctl.md the rules.

/// Keys stay in the order of the table.
using ConfigJson = nlohmann::ordered_json;

/// One field in its JSON form.
ConfigJson configFieldToJson(ZelmorConfig const& config, ConfigKey key);

/// Every field of the table.
ConfigJson configToJson(ZelmorConfig const& config);

/// Changes the fields `json` names, and only those; reserved bytes are never
/// touched. Nothing changes when any member is refused (an unknown name, a
/// wrong type, a value outside the field's range or between two of its
/// storage steps, a choice the list does not have, a zone the system's
/// database does not know): the message names the field.
std::optional<std::string> applyConfigJson(ZelmorConfig& config, ConfigJson const& json);

struct ConfigDifference {
    std::string_view name;
    ConfigJson before;
    ConfigJson after;
};

/// The fields whose values differ from `before` to `after`, in table order.
std::vector<ConfigDifference> configDiff(ZelmorConfig const& before, ZelmorConfig const& after);
