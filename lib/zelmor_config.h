#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The device configuration, carried whole as the 104-byte image that command
// 0x20 reads and 0x21 writes back. The device defines the image; this side
// reads and changes its fields through one table (ZELMOR_CONFIG_FIELDS), so
// that the configuration dialog, zelmorctl and the simulator agree on every
// byte. The layout, units and ranges are written down in docs/config-image.md.
//
// All numbers are little-endian and the image is packed. Bytes no field names
// (and flag bits no flag names) are the device's own: a write sends them back
// exactly as they were read.

enum class ConfigFieldKind : uint8_t {
    Flag,    // one bit; `size` is the bit number within the byte at `offset`
    Choice,  // one byte, an index into the field's choice list
    U8,      // unsigned integers of 1 or 2 bytes, value = raw × scale
    I8,
    U16,
    Text,    // `size` bytes of ASCII, NUL-padded; a full field has no NUL
};

/// One field of the image. `scale` turns a stored integer into the field's
/// unit (0.001 for millivolts shown as volts); `minimum` and `maximum` bound
/// the value in that unit.
struct ConfigField {
    std::string_view name;
    uint8_t offset;
    ConfigFieldKind kind;
    uint8_t size;
    double scale;
    double minimum;
    double maximum;
};

// X(name, offset, kind, size/bit, scale, minimum, maximum). The name is the
// field's key in zelmorctl's JSON; the accessors are named after it.
// clang-format off
#define ZELMOR_CONFIG_FIELDS(X) \
    X(timeZone,                    0, Text,   32, 1,     0, 0)      \
    X(disableVoltage2,            32, Flag,    0, 1,     0, 1)      \
    X(useVoltage2ForPower,        32, Flag,    1, 1,     0, 1)      \
    X(flipCurrentSign,            32, Flag,    2, 1,     0, 1)      \
    X(setTimeAutomatically,       32, Flag,    3, 1,     0, 1)      \
    X(relayOnAtStartup,           32, Flag,    4, 1,     0, 1)      \
    X(latchRelayOn,               32, Flag,    5, 1,     0, 1)      \
    X(invertRelayLogic,           32, Flag,    6, 1,     0, 1)      \
    X(keepEthernetLedOn,          32, Flag,    7, 1,     0, 1)      \
    X(keepAccessPointOn,          33, Flag,    0, 1,     0, 1)      \
    X(disableWifiPowerSaving,     33, Flag,    1, 1,     0, 1)      \
    X(wifiWatchdog,               33, Flag,    2, 1,     0, 1)      \
    X(useWithoutInternet,         33, Flag,    3, 1,     0, 1)      \
    X(lvdEnable,                  33, Flag,    4, 1,     0, 1)      \
    X(lvdUseVoltage2,             33, Flag,    5, 1,     0, 1)      \
    X(hvdEnable,                  33, Flag,    6, 1,     0, 1)      \
    X(hvdUseVoltage2,             33, Flag,    7, 1,     0, 1)      \
    X(ocdEnable,                  34, Flag,    0, 1,     0, 1)      \
    X(autoOffEnable,              34, Flag,    1, 1,     0, 1)      \
    X(autoOnEnable,               34, Flag,    2, 1,     0, 1)      \
    X(ltdEnable,                  34, Flag,    3, 1,     0, 1)      \
    X(htdEnable,                  34, Flag,    4, 1,     0, 1)      \
    X(fuelGaugeEnable,            34, Flag,    5, 1,     0, 1)      \
    X(fuelGaugeUseVoltage2,       34, Flag,    6, 1,     0, 1)      \
    X(manualFullChargeDetection,  34, Flag,    7, 1,     0, 1)      \
    X(disconnectOnSoc,            35, Flag,    0, 1,     0, 1)      \
    X(reconnectOnSoc,             35, Flag,    1, 1,     0, 1)      \
    X(generatorEnable,            35, Flag,    2, 1,     0, 1)      \
    X(generatorUseVoltage2,       35, Flag,    3, 1,     0, 1)      \
    X(generatorOnByVoltage,       35, Flag,    4, 1,     0, 1)      \
    X(generatorOnBySoc,           35, Flag,    5, 1,     0, 1)      \
    X(generatorOffByVoltage,      35, Flag,    6, 1,     0, 1)      \
    X(generatorOffBySoc,          35, Flag,    7, 1,     0, 1)      \
    X(chargeManagerEnable,        36, Flag,    0, 1,     0, 1)      \
    X(shunt,                      37, Choice,  1, 1,     0, 255)    \
    X(maxShuntCurrent,            38, U16,     2, 1,     0, 65535)  \
    X(relayConnectFilter,         40, U16,     2, 1,     0, 65535)  \
    X(mfTerminalFunction,         42, Choice,  1, 1,     0, 3)      \
    X(dataLoggingMode,            43, Choice,  1, 1,     0, 7)      \
    X(lvdDisconnectThreshold,     44, U16,     2, 0.001, 0, 65.535) \
    X(lvdConnectThreshold,        46, U16,     2, 0.001, 0, 65.535) \
    X(lvdDisconnectFilter,        48, U16,     2, 1,     0, 65535)  \
    X(hvdDisconnectThreshold,     50, U16,     2, 0.001, 0, 65.535) \
    X(hvdConnectThreshold,        52, U16,     2, 0.001, 0, 65.535) \
    X(hvdDisconnectFilter,        54, U16,     2, 1,     0, 65535)  \
    X(ocdTripThreshold,           56, U16,     2, 0.1,   0, 6553.5) \
    X(ocdTripFilter,              58, U16,     2, 1,     0, 65535)  \
    X(autoOffHours,               60, U8,      1, 1,     0, 255)    \
    X(autoOffMinutes,             61, U8,      1, 1,     0, 59)     \
    X(autoOffSeconds,             62, U8,      1, 1,     0, 59)     \
    X(autoOnHours,                63, U8,      1, 1,     0, 255)    \
    X(autoOnMinutes,              64, U8,      1, 1,     0, 59)     \
    X(autoOnSeconds,              65, U8,      1, 1,     0, 59)     \
    X(ltdDisconnectThreshold,     66, I8,      1, 1,  -128, 127)    \
    X(ltdConnectThreshold,        67, I8,      1, 1,  -128, 127)    \
    X(ltdDisconnectFilter,        68, U16,     2, 1,     0, 65535)  \
    X(htdDisconnectThreshold,     70, I8,      1, 1,  -128, 127)    \
    X(htdConnectThreshold,        71, I8,      1, 1,  -128, 127)    \
    X(htdDisconnectFilter,        72, U16,     2, 1,     0, 65535)  \
    X(batteryChemistry,           74, Choice,  1, 1,     0, 4)      \
    X(fuelGaugeBatteryVoltage,    75, Choice,  1, 1,     0, 5)      \
    X(fuelGaugeCellCount,         76, U8,      1, 1,     0, 255)    \
    X(fuelGaugeCapacity,          77, U16,     2, 1,     0, 65535)  \
    X(fullChargeVoltage,          79, U16,     2, 0.001, 0, 65.535) \
    X(fullChargeCurrent,          81, U16,     2, 0.01,  0, 655.35) \
    X(fullChargeFilter,           83, U8,      1, 1,     0, 255)    \
    X(disconnectSocThreshold,     84, U8,      1, 1,     0, 255)    \
    X(reconnectSocThreshold,      85, U8,      1, 1,     0, 255)    \
    X(generatorOnVoltage,         86, U16,     2, 0.001, 0, 65.535) \
    X(generatorOnVoltageFilter,   88, U16,     2, 1,     0, 65535)  \
    X(generatorOnSoc,             90, U8,      1, 1,     0, 255)    \
    X(generatorOffVoltage,        91, U16,     2, 0.001, 0, 65.535) \
    X(generatorOffSoc,            93, U8,      1, 1,     0, 255)    \
    X(generatorOffDelay,          94, U16,     2, 1,     0, 65535)  \
    X(chargeManagerBatteryVoltage,96, Choice,  1, 1,     0, 5)      \
    X(chargeManagerCellCount,     97, U8,      1, 1,     0, 255)    \
    X(chargeManagerCapacity,      98, U16,     2, 1,     0, 65535)
// clang-format on

/// Every field of the image, in the order of the table.
enum class ConfigKey : uint8_t {
#define ZELMOR_CONFIG_KEY(name, ...) name,
    ZELMOR_CONFIG_FIELDS(ZELMOR_CONFIG_KEY)
#undef ZELMOR_CONFIG_KEY
};

inline constexpr ConfigField kConfigFields[] = {
#define ZELMOR_CONFIG_ROW(name, offset, kind, size, scale, minimum, maximum) \
    {#name, offset, ConfigFieldKind::kind, size, scale, minimum, maximum},
    ZELMOR_CONFIG_FIELDS(ZELMOR_CONFIG_ROW)
#undef ZELMOR_CONFIG_ROW
};

inline constexpr size_t kConfigFieldCount = std::size(kConfigFields);

constexpr ConfigField const& configField(ConfigKey key) { return kConfigFields[static_cast<size_t>(key)]; }

/// How many bytes of the image a field covers (a flag covers its byte).
constexpr size_t configFieldBytes(ConfigField const& field) {
    switch (field.kind) {
        case ConfigFieldKind::Flag:
        case ConfigFieldKind::Choice:
        case ConfigFieldKind::U8:
        case ConfigFieldKind::I8: return 1;
        case ConfigFieldKind::U16: return 2;
        case ConfigFieldKind::Text: return field.size;
    }
    return 0;
}

class ZelmorConfig {
public:
    static constexpr size_t kSize = 104;
    using Image = std::array<uint8_t, kSize>;

    ZelmorConfig() = default;
    explicit ZelmorConfig(Image const& image) : image_(image) {}

    Image const& image() const { return image_; }
    Image& image() { return image_; }

    // By key: the stored integer (a flag is 0 or 1, a text field has none),
    // the value in the field's unit, and the text of a text field. A set
    // value is rounded to the field's storage step and kept within its
    // minimum and maximum; a set text is cut to the field's length.
    int32_t raw(ConfigKey key) const;
    void setRaw(ConfigKey key, int32_t value);
    double value(ConfigKey key) const { return raw(key) * configField(key).scale; }
    void setValue(ConfigKey key, double value);
    std::string text(ConfigKey key) const;
    void setText(ConfigKey key, std::string_view text);

    // Named accessors, one pair per field: bool for flags, uint8_t for
    // choices, std::string for text, double in the field's unit otherwise.
#define ZELMOR_CONFIG_ACCESSOR(name, offset, kind, ...) ZELMOR_CONFIG_ACCESSOR_##kind(name)
#define ZELMOR_CONFIG_ACCESSOR_Flag(name)                                          \
    bool name() const { return raw(ConfigKey::name) != 0; }                        \
    void name(bool on) { setRaw(ConfigKey::name, on ? 1 : 0); }
#define ZELMOR_CONFIG_ACCESSOR_Choice(name)                                        \
    uint8_t name() const { return static_cast<uint8_t>(raw(ConfigKey::name)); }    \
    void name(uint8_t index) { setRaw(ConfigKey::name, index); }
#define ZELMOR_CONFIG_ACCESSOR_Text(name)                                          \
    std::string name() const { return text(ConfigKey::name); }                     \
    void name(std::string_view text) { setText(ConfigKey::name, text); }
#define ZELMOR_CONFIG_ACCESSOR_NUMBER(name)                                        \
    double name() const { return value(ConfigKey::name); }                         \
    void name(double value) { setValue(ConfigKey::name, value); }
#define ZELMOR_CONFIG_ACCESSOR_U8(name) ZELMOR_CONFIG_ACCESSOR_NUMBER(name)
#define ZELMOR_CONFIG_ACCESSOR_I8(name) ZELMOR_CONFIG_ACCESSOR_NUMBER(name)
#define ZELMOR_CONFIG_ACCESSOR_U16(name) ZELMOR_CONFIG_ACCESSOR_NUMBER(name)
    ZELMOR_CONFIG_FIELDS(ZELMOR_CONFIG_ACCESSOR)
#undef ZELMOR_CONFIG_ACCESSOR
#undef ZELMOR_CONFIG_ACCESSOR_Flag
#undef ZELMOR_CONFIG_ACCESSOR_Choice
#undef ZELMOR_CONFIG_ACCESSOR_Text
#undef ZELMOR_CONFIG_ACCESSOR_NUMBER
#undef ZELMOR_CONFIG_ACCESSOR_U8
#undef ZELMOR_CONFIG_ACCESSOR_I8
#undef ZELMOR_CONFIG_ACCESSOR_U16

    bool operator==(ZelmorConfig const&) const = default;

private:
    Image image_{};
};

namespace config_layout {

/// Whether every field lies inside the image, the table is in offset order,
/// and no two fields share a byte (flags share theirs only with other flags,
/// each on its own bit).
constexpr bool fieldsFit() {
    for (size_t i = 0; i < kConfigFieldCount; ++i) {
        ConfigField const& field = kConfigFields[i];
        if (field.offset + configFieldBytes(field) > ZelmorConfig::kSize) return false;
        if (field.kind == ConfigFieldKind::Flag && field.size > 7) return false;
        if (i == 0) continue;
        ConfigField const& before = kConfigFields[i - 1];
        bool const flags = field.kind == ConfigFieldKind::Flag && before.kind == ConfigFieldKind::Flag;
        if (flags && field.offset == before.offset) {
            if (field.size <= before.size) return false;
        } else if (field.offset < before.offset + configFieldBytes(before)) {
            return false;
        }
    }
    return true;
}

}  // namespace config_layout

static_assert(config_layout::fieldsFit(), "configuration fields overlap or leave the image");
static_assert(kConfigFieldCount == 77, "a field was added or removed: update docs/config-image.md");
