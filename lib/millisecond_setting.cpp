#include "millisecond_setting.h"

#include <charconv>
#include <cstring>

long millisecondSetting(char const* text, long fallback) {
    if (text == nullptr) return fallback;
    char const* const end = text + std::strlen(text);
    long value = 0;
    auto const [stop, error] = std::from_chars(text, end, value);
    return error == std::errc() && stop == end && value > 0 ? value : fallback;
}
