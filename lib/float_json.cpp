#include "float_json.h"

#include <charconv>
#include <cmath>
#include <optional>

namespace {

using Json = nlohmann::ordered_json;

// The shortest decimal of a float, which reads back as that float.
struct FloatText {
    char text[32];
    char const* end;

    explicit FloatText(float value) : end(std::to_chars(text, text + sizeof text, value).ptr) {}
    std::string_view view() const { return {text, static_cast<size_t>(end - text)}; }
};

double nearestDouble(FloatText const& decimal) {
    double value = 0;
    std::from_chars(decimal.text, decimal.end, value);
    return value;
}

// The float's decimal when `value` is what floatJson makes of a float: the
// double nearest to that decimal, so the decimal reads back as `value` too.
// That float is the one nearest to `value`, or for one float (0x15AE43FD,
// rounded twice) its neighbour.
std::optional<std::string> floatDecimal(double value) {
    float const nearest = static_cast<float>(value);
    for (float const candidate : {nearest, std::nextafter(nearest, -INFINITY), std::nextafter(nearest, INFINITY)}) {
        FloatText const decimal(candidate);
        double const back = nearestDouble(decimal);
        if (back != value || std::signbit(back) != std::signbit(value)) continue;
        std::string text(decimal.view());
        if (text.find_first_of(".e") == std::string::npos) text += ".0";
        return text;
    }
    return std::nullopt;
}

std::string leafText(Json const& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

void write(Json const& value, std::string& out) {
    if (value.is_object() || value.is_array()) {
        out += value.is_object() ? '{' : '[';
        for (auto item = value.begin(); item != value.end(); ++item) {
            if (item != value.begin()) out += ',';
            if (value.is_object()) out += leafText(item.key()) + ':';
            write(item.value(), out);
        }
        out += value.is_object() ? '}' : ']';
        return;
    }
    std::optional<std::string> const decimal =
        value.is_number_float() ? floatDecimal(value.get<double>()) : std::nullopt;
    out += decimal ? *decimal : leafText(value);
}

}  // namespace

nlohmann::ordered_json floatJson(float value) {
    if (!std::isfinite(value)) return nullptr;
    // The JSON writer prints a double as a decimal that reads back as that
    // double (Grisu2), but not always the shortest: for about one float in
    // 650 it gives 17 digits (1.0000637f came out as 1.0000637000000001).
    // So the float travels as the double nearest to its shortest decimal, and
    // jsonLine prints that decimal itself, finding the float again from the
    // double: checked for every finite float, the double turns back into the
    // float it came from, or for one its neighbour. Both conversions ignore
    // the locale.
    return nearestDouble(FloatText(value));
}

std::string jsonLine(nlohmann::ordered_json const& value) {
    std::string out;
    write(value, out);
    return out;
}
