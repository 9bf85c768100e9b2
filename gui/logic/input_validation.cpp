#include "input_validation.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <system_error>
#include <utility>

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isDecimalSeparator(char c) { return c == '.' || c == ','; }

bool isUnit(char c) { return c == 'A' || c == 'a'; }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view withoutUnit(std::string_view text) {
    if (!text.empty() && isUnit(text.back())) text.remove_suffix(1);
    return trimmed(text);
}

/// The text as std::from_chars reads a fixed-point number ('-' sign, '.'
/// separator), or "" when it is not a plain decimal number.
std::string canonicalNumber(std::string_view text) {
    bool const negative = !text.empty() && text.front() == '-';
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) text.remove_prefix(1);
    bool const wellFormed =
        std::count_if(text.begin(), text.end(), isDigit) > 0 &&
        std::count_if(text.begin(), text.end(), isDecimalSeparator) <= 1 &&
        std::all_of(text.begin(), text.end(), [](char c) { return isDigit(c) || isDecimalSeparator(c); });
    if (!wellFormed) return {};
    std::string number(negative ? "-" : "");
    std::transform(text.begin(), text.end(), std::back_inserter(number),
                   [](char c) { return isDecimalSeparator(c) ? '.' : c; });
    return number;
}

CalibrationCurrentEntry problem(std::string text) { return {0, std::move(text)}; }

CalibrationCurrentEntry outOfRange() {
    return problem(fmt::format("must be between -{0} A and {0} A, not 0", kMaxCalibrationCurrent));
}

}  // namespace

size_t codePointCount(std::string_view utf8) {
    // Every code point has exactly one byte that is not a continuation byte.
    return static_cast<size_t>(
        std::count_if(utf8.begin(), utf8.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string enterStringProblem(std::string_view entry, std::string_view confirmation, size_t maxLength, bool confirm) {
    if (codePointCount(entry) > maxLength) return "string is too long";
    if (confirm && confirmation != entry) return "passwords do not match";
    return {};
}

CalibrationCurrentEntry readCalibrationCurrent(std::string_view text) {
    std::string_view const field = trimmed(text);
    if (field.empty()) return problem("value is empty");
    std::string const number = canonicalNumber(withoutUnit(field));
    if (number.empty()) return problem("not a number");
    double value = 0;
    auto const [end, error] =
        std::from_chars(number.data(), number.data() + number.size(), value, std::chars_format::fixed);
    if (error == std::errc::result_out_of_range) return outOfRange();
    if (error != std::errc() || end != number.data() + number.size()) return problem("not a number");
    auto const amperes = static_cast<float>(value);
    if (amperes == 0 || std::fabs(value) > kMaxCalibrationCurrent) return outOfRange();
    return {amperes, {}};
}
