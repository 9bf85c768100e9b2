// The configuration image's fields: each lands on its own bytes (or bit), in
// its unit and little-endian, and touches nothing else; and the message the
// user is shown for each configuration that may not be written.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "config_choices.h"
#include "config_validation.h"
#include "factory_config.h"
#include "zelmor_config.h"

namespace {

ZelmorConfig::Image patterned() {
    ZelmorConfig::Image image{};
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<uint8_t>(7 * i + 3);
    return image;
}

/// The bits of the image a field may change.
ZelmorConfig::Image ownedBits(ConfigField const& field) {
    ZelmorConfig::Image mask{};
    if (field.kind == ConfigFieldKind::Flag) {
        mask[field.offset] = static_cast<uint8_t>(1u << field.size);
        return mask;
    }
    for (size_t i = 0; i < configFieldBytes(field); ++i) mask[field.offset + i] = 0xFF;
    return mask;
}

TEST(ZelmorConfigTest, EveryFieldKeepsItsValueAndTouchesNothingElse) {
    ZelmorConfig all(patterned());
    std::vector<int32_t> written;
    for (size_t i = 0; i < kConfigFieldCount; ++i) {
        ConfigField const& field = kConfigFields[i];
        auto const key = static_cast<ConfigKey>(i);
        SCOPED_TRACE(std::string(field.name));
        ZelmorConfig one(patterned());
        auto const lowest = static_cast<int32_t>(std::lround(field.minimum / field.scale));
        auto const highest = static_cast<int32_t>(std::lround(field.maximum / field.scale));
        int32_t value = lowest + static_cast<int32_t>(i * 13 + 5) % (highest - lowest + 1);
        if (value == one.raw(key)) value = value == highest ? lowest : value + 1;
        for (ZelmorConfig* config : {&one, &all}) {
            if (field.kind == ConfigFieldKind::Text)
                config->setText(key, "Europe/Berlin");
            else if (field.kind == ConfigFieldKind::Flag || field.kind == ConfigFieldKind::Choice)
                config->setRaw(key, value);
            else
                config->setValue(key, value * field.scale);
        }
        written.push_back(value);
        ZelmorConfig::Image const mask = ownedBits(field);
        for (size_t b = 0; b < ZelmorConfig::kSize; ++b)
            EXPECT_EQ((one.image()[b] ^ patterned()[b]) & ~mask[b], 0) << "byte " << b;
        EXPECT_NE(one.image(), patterned());
    }
    for (size_t i = 0; i < kConfigFieldCount; ++i) {
        auto const key = static_cast<ConfigKey>(i);
        SCOPED_TRACE(std::string(kConfigFields[i].name));
        if (kConfigFields[i].kind == ConfigFieldKind::Text)
            EXPECT_EQ(all.text(key), "Europe/Berlin");
        else
            EXPECT_EQ(all.raw(key), written[i]);
    }
    // Byte 36 bits 1-7 and bytes 100-103 belong to no field.
    EXPECT_EQ(all.image()[36] & 0xFE, patterned()[36] & 0xFE);
    for (size_t b = 100; b < ZelmorConfig::kSize; ++b) EXPECT_EQ(all.image()[b], patterned()[b]);
}

TEST(ZelmorConfigTest, NamedAccessorsStoreTheirUnitLittleEndian) {
    using Setter = void (*)(ZelmorConfig&);
    std::tuple<Setter, size_t, std::vector<uint8_t>> const rows[] = {
        {[](ZelmorConfig& c) { c.lvdDisconnectThreshold(12.345); }, 44, {0x39, 0x30}},
        {[](ZelmorConfig& c) { c.ocdTripThreshold(250.5); }, 56, {0xC9, 0x09}},
        {[](ZelmorConfig& c) { c.fullChargeCurrent(2.5); }, 81, {0xFA, 0x00}},
        {[](ZelmorConfig& c) { c.ltdDisconnectThreshold(-10); }, 66, {0xF6}},
        {[](ZelmorConfig& c) { c.chargeManagerCapacity(20000); }, 98, {0x20, 0x4E}},
        {[](ZelmorConfig& c) { c.chargeManagerEnable(true); }, 36, {0x01}},
        {[](ZelmorConfig& c) { c.timeZone("UTC"); }, 0, {'U', 'T', 'C', 0}},
    };
    for (auto const& [set, offset, bytes] : rows) {
        SCOPED_TRACE(offset);
        ZelmorConfig config;
        set(config);
        EXPECT_EQ(std::vector<uint8_t>(config.image().begin() + offset, config.image().begin() + offset + bytes.size()),
                  bytes);
    }
}

TEST(ZelmorConfigTest, EachProblemHasItsMessage) {
    using Change = void (*)(ZelmorConfig&);
    std::tuple<Change, std::optional<std::string>> const rows[] = {
        {[](ZelmorConfig&) {}, std::nullopt},
        {[](ZelmorConfig& c) { c.timeZone(""); }, "Timezone not selected"},
        {[](ZelmorConfig& c) { c.shunt(kNoShunt); }, "Shunt not selected"},
        {[](ZelmorConfig& c) { c.shunt(1); }, "Max. Shunt Current cannot be higher than the shunt nominal current"},
        {[](ZelmorConfig& c) { c.fuelGaugeCellCount(9); }, "Battery Cell Count should be between 1 and 6"},
        {[](ZelmorConfig& c) { c.fuelGaugeCellCount(0); }, "Battery Cell Count should be between 1 and 6"},
        {[](ZelmorConfig& c) { c.fuelGaugeBatteryVoltage(5), c.fuelGaugeCellCount(32); }, std::nullopt},
        {[](ZelmorConfig& c) { c.fuelGaugeBatteryVoltage(5), c.fuelGaugeCellCount(33); },
         "Battery Cell Count should be between 1 and 32"},
        {[](ZelmorConfig& c) { c.fuelGaugeCapacity(0); }, "Battery Capacity should be between 1.0Ah and 20,000Ah"},
        {[](ZelmorConfig& c) { c.fuelGaugeCapacity(20001); }, "Battery Capacity should be between 1.0Ah and 20,000Ah"},
        {[](ZelmorConfig& c) { c.disconnectSocThreshold(100); }, "Battery Disconnect Threshold should be under 100%"},
        {[](ZelmorConfig& c) { c.reconnectSocThreshold(100); }, "Battery Connect Threshold should be under 100%"},
        // Checked with the charge manager off, as every feature is.
        {[](ZelmorConfig& c) { c.chargeManagerBatteryVoltage(2), c.chargeManagerCellCount(13); },
         "Battery Cell Count should be between 1 and 12"},
    };
    for (auto const& [change, message] : rows) {
        ZelmorConfig config = sim::factoryConfig(0x41);
        change(config);
        EXPECT_EQ(configProblem(config), message);
    }
}

}  // namespace

namespace {

// Every choice field but the shunt (whose texts come from the shunt table)
// has its list, as long as the field's range; no other field has one.
TEST(ZelmorConfigTest, ChoiceFieldsHaveTheirListsAndNoOtherFieldHasOne) {
    for (size_t i = 0; i < kConfigFieldCount; ++i) {
        auto const key = static_cast<ConfigKey>(i);
        ConfigField const& field = configField(key);
        SCOPED_TRACE(std::string(field.name));
        bool const listed = field.kind == ConfigFieldKind::Choice && key != ConfigKey::shunt;
        EXPECT_EQ(configChoices(key).size(), listed ? static_cast<size_t>(field.maximum) + 1 : 0u);
    }
    EXPECT_EQ(configChoices(ConfigKey::mfTerminalFunction)[0], "Data Stream Ouput");
    EXPECT_EQ(configChoices(ConfigKey::chargeManagerBatteryVoltage)[5], "Custom");
}

}  // namespace
