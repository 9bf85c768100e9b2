#include "float_json.h"

#include <charconv>
#include <cmath>

nlohmann::ordered_json floatJson(float value) {
    if (!std::isfinite(value)) return nullptr;
    // to_chars gives the shortest decimal that reads back as this float. The
    // JSON writer prints a double as the shortest decimal that reads back as
    // that double; for the double nearest to this decimal that is the same
    // digits, since no shorter decimal lands on the same double. Checked for
    // every finite float: what the writer prints reads back (strtof) as the
    // float it came from. Both conversions ignore the locale.
    char text[32];
    char const* const end = std::to_chars(text, text + sizeof text, value).ptr;
    double exact = 0;
    std::from_chars(text, end, exact);
    return exact;
}
