#include "zelmor_config.h"

#include <algorithm>
#include <cmath>

int32_t ZelmorConfig::raw(ConfigKey key) const {
    ConfigField const& field = configField(key);
    uint8_t const* at = image_.data() + field.offset;
    switch (field.kind) {
        case ConfigFieldKind::Flag:
            return (at[0] >> field.size) & 1;
        case ConfigFieldKind::Choice:
        case ConfigFieldKind::U8:
            return at[0];
        case ConfigFieldKind::I8:
            return static_cast<int8_t>(at[0]);
        case ConfigFieldKind::U16:
            return at[0] | at[1] << 8;
        case ConfigFieldKind::Text:
            return 0;
    }
    return 0;
}

void ZelmorConfig::setRaw(ConfigKey key, int32_t value) {
    ConfigField const& field = configField(key);
    uint8_t* at = image_.data() + field.offset;
    switch (field.kind) {
        case ConfigFieldKind::Flag: {
            uint8_t const bit = static_cast<uint8_t>(1u << field.size);
            at[0] = static_cast<uint8_t>(value ? at[0] | bit : at[0] & ~bit);
            return;
        }
        case ConfigFieldKind::Choice:
        case ConfigFieldKind::U8:
            at[0] = static_cast<uint8_t>(std::clamp(value, 0, 255));
            return;
        case ConfigFieldKind::I8:
            at[0] = static_cast<uint8_t>(std::clamp(value, -128, 127));
            return;
        case ConfigFieldKind::U16: {
            uint16_t const stored = static_cast<uint16_t>(std::clamp(value, 0, 65535));
            at[0] = static_cast<uint8_t>(stored);
            at[1] = static_cast<uint8_t>(stored >> 8);
            return;
        }
        case ConfigFieldKind::Text:
            return;
    }
}

void ZelmorConfig::setValue(ConfigKey key, double value) {
    ConfigField const& field = configField(key);
    if (std::isnan(value)) return;
    double const bounded = std::clamp(value, field.minimum, field.maximum);
    setRaw(key, static_cast<int32_t>(std::lround(bounded / field.scale)));
}

std::string ZelmorConfig::text(ConfigKey key) const {
    ConfigField const& field = configField(key);
    if (field.kind != ConfigFieldKind::Text) return {};
    char const* at = reinterpret_cast<char const*>(image_.data() + field.offset);
    return std::string(at, std::find(at, at + field.size, '\0'));
}

void ZelmorConfig::setText(ConfigKey key, std::string_view text) {
    ConfigField const& field = configField(key);
    if (field.kind != ConfigFieldKind::Text) return;
    uint8_t* at = image_.data() + field.offset;
    std::fill_n(at, field.size, 0);
    std::copy_n(text.begin(), std::min<size_t>(text.size(), field.size), at);
}
