#include "argument_values.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <ctime>

#include <fmt/core.h>

#include "command_error.h"
#include "hex.h"

namespace {

bool allOf(std::string const& text, int (*test)(int)) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [test](char c) { return test(static_cast<unsigned char>(c)) != 0; });
}

template <class Number>
bool parseNumber(std::string const& text, int base, Number& value) {
    char const* end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, value, base);
    return result.ec == std::errc() && result.ptr == end;
}

std::string withoutHexPrefix(std::string const& text) {
    return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') ? text.substr(2) : text;
}

}  // namespace

uint8_t parseRevision(std::string const& text, char const* what) {
    std::string const hex = withoutHexPrefix(text);
    bool const isHex = hex.size() != text.size();
    uint8_t value = 0;
    if (!(isHex ? allOf(hex, isxdigit) : allOf(text, isdigit)) || !parseNumber(hex, isHex ? 16 : 10, value))
        throw usageError(fmt::format("{} must be a hardware revision such as 0x41 or 65, not '{}'", what, text));
    return value;
}

uint64_t parseSerial(std::string const& text, char const* what) {
    std::string const hex = withoutHexPrefix(text);
    uint64_t value = 0;
    if (hex.size() > 16 || !allOf(hex, isxdigit) || !parseNumber(hex, 16, value))
        throw usageError(fmt::format("{} must be a serial number of up to 16 hex digits, not '{}'", what, text));
    return value;
}

int64_t parseTime(std::string const& text, char const* what, ClockText clock) {
    int64_t seconds = 0;
    if (allOf(text, isdigit)) {
        if (parseNumber(text, 10, seconds)) return seconds;
    } else {
        std::tm written{};
        char const* end = ::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &written);
        if (end && *end == '\0') {
            written.tm_isdst = -1;
            std::time_t const time = clock == ClockText::Local ? std::mktime(&written) : ::timegm(&written);
            if (time != static_cast<std::time_t>(-1)) return time;
        }
    }
    char const* const kind = clock == ClockText::Local ? "a local time" : "a time of the log";
    throw usageError(
        fmt::format("{} must be seconds since 1970 or {} \"YYYY-MM-DD HH:MM:SS\", not '{}'", what, kind, text));
}

std::vector<uint8_t> parseHexBytes(std::string const& text, size_t size, char const* what) {
    auto bytes = hexDecode(text);
    if (!bytes || bytes->size() != size)
        throw usageError(fmt::format("{} must be {} bytes written as {} hex digits", what, size, 2 * size));
    return *bytes;
}
