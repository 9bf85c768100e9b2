#pragma once

#include <string>

#include <nlohmann/json.hpp>

/// A 32-bit float the device sent, as a JSON number that jsonLine prints as
/// the shortest decimal that reads back (strtof) as the very same float:
/// -33.125 stays -33.125 and 0.1f is 0.1, not 0.10000000149011612. Null for
/// NaN and the infinities, which JSON has no number for.
nlohmann::ordered_json floatJson(float value);

/// `value` on one line as dump() writes it (bytes that are not UTF-8
/// replaced), but with every number floatJson made printed as its float's
/// shortest decimal, with ".0" added to a whole number as dump() does.
std::string jsonLine(nlohmann::ordered_json const& value);
