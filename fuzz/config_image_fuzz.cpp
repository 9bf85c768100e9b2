// A configuration image comes from the device, and its JSON goes to a file
// that people edit and hand back. Any image turns into JSON that writes back
// to the very same image, the bytes no field names included (a zone's bytes
// behind its terminator become zeros), as long as its values are ones the
// JSON can carry: a zone the system knows (or none) and numbers and choices
// within their fields' ranges. Any other image is refused back with the field
// named, and a refusal changes nothing. The JSON also survives being printed
// and read.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "config_choices.h"
#include "config_json.h"
#include "fuzz_check.h"
#include "time_zone.h"

namespace {

// Whether the JSON of `config` can carry its values back: a known zone or
// none, and every number and choice within its field's range.
bool carriesBack(ZelmorConfig const& config) {
    std::string const zone = config.timeZone();
    if (!zone.empty() && !isKnownTimeZone(zone)) return false;
    for (size_t i = 0; i < kConfigFieldCount; ++i) {
        ConfigField const& field = kConfigFields[i];
        if (field.kind == ConfigFieldKind::Flag || field.kind == ConfigFieldKind::Text) continue;
        int32_t const raw = config.raw(static_cast<ConfigKey>(i));
        if (raw < std::lround(field.minimum / field.scale) || raw > std::lround(field.maximum / field.scale))
            return false;
    }
    return true;
}

bool refusalNamesField(std::string const& message) {
    for (ConfigField const& field : kConfigFields)
        if (message.starts_with(std::string(field.name) + ": ")) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size < ZelmorConfig::kSize) return 0;
    ZelmorConfig::Image image;
    std::memcpy(image.data(), data, image.size());
    ZelmorConfig const original(image);
    ConfigJson const json = configToJson(original);
    fuzzCheck(json.size() == kConfigFieldCount, "every field is a member");

    ZelmorConfig same = original;
    auto const refused = applyConfigJson(same, json);
    if (!carriesBack(original)) {
        fuzzCheck(refused && refusalNamesField(*refused), "a value the JSON cannot carry is refused by name");
        fuzzCheck(same == original, "a refusal changes nothing");
        return 0;
    }
    fuzzCheck(!refused, "the JSON of a carried image is taken back");
    // The zone is written whole, so bytes behind its terminator become padding.
    ZelmorConfig padded = original;
    padded.timeZone(original.timeZone());
    fuzzCheck(same == padded, "the image's own JSON changes no other byte of it");
    fuzzCheck(configDiff(original, same).empty(), "an image differs from nothing in itself");

    // Onto a blank image: every byte a field covers comes back, a zone up to its terminator.
    ZelmorConfig blank;
    fuzzCheck(!applyConfigJson(blank, json), "the JSON is taken by a blank image");
    // The bits each byte's fields cover: a flag its own, every other field whole bytes.
    uint8_t covered[ZelmorConfig::kSize] = {};
    for (ConfigField const& field : kConfigFields) {
        if (field.kind == ConfigFieldKind::Flag) covered[field.offset] |= static_cast<uint8_t>(1u << field.size);
        for (size_t i = 0; field.kind != ConfigFieldKind::Flag && i < configFieldBytes(field); ++i)
            covered[field.offset + i] = 0xFF;
    }
    size_t const zoneEnd = original.timeZone().size();
    for (size_t i = 0; i < ZelmorConfig::kSize; ++i) {
        bool const zonePadding = i >= zoneEnd && i < configField(ConfigKey::timeZone).size;
        uint8_t const expected = zonePadding ? 0 : image[i] & covered[i];
        fuzzCheck(blank.image()[i] == expected, "a field's bytes come back onto a blank image");
    }

    std::string const text = json.dump(2);
    fuzzCheck(ConfigJson::parse(text) == json, "the printed JSON reads back as it was");
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    ZelmorConfig config;
    config.timeZone("Europe/Berlin");
    config.lvdEnable(true);
    config.shunt(3);
    config.maxShuntCurrent(300);
    config.lvdDisconnectThreshold(11.8);
    config.ocdTripThreshold(150.5);
    config.ltdDisconnectThreshold(-10);
    config.dataLoggingMode(7);
    config.fullChargeCurrent(2.5);
    seeds.emplace_back(config.image().begin(), config.image().end());
    config.timeZone("");
    config.shunt(kNoShunt);
    config.image()[102] = 0xA5;  // a byte no field names
    seeds.emplace_back(config.image().begin(), config.image().end());
}
