#pragma once

#include <nlohmann/json.hpp>

/// A 32-bit float the device sent, as a JSON number whose text is the
/// shortest decimal that reads back (strtof) as the very same float:
/// -33.125 stays -33.125 and 0.1f is 0.1, not 0.10000000149011612. Null for
/// NaN and the infinities, which JSON has no number for.
nlohmann::ordered_json floatJson(float value);
