#include "firmware_image.h"

#include <algorithm>
#include <string_view>

#include "byte_io.h"
#include "crc32.h"
#include "hardware_revision.h"

namespace {

constexpr size_t kCrcSize = 4;
constexpr size_t kMagicOffset = 4;
constexpr size_t kMagicSize = 8;
constexpr size_t kVersionOffset = 12;
constexpr size_t kSecondVersionOffset = 14;
constexpr size_t kPayloadLengthOffset = 16;
static_assert(kMagicOffset == kCrcSize && kMagicOffset + kMagicSize == kVersionOffset);
static_assert(kPayloadLengthOffset + sizeof(uint32_t) == kFirmwareHeaderSize);

std::string_view magicFor(uint8_t revision) {
    if (isWifiFamily(revision)) return "ZLMRWIFI";
    if (isLanFamily(revision)) return "ZLMRETHN";
    return "ZLMRBLE0";
}

bool isBcd(uint16_t value) {
    for (unsigned shift = 0; shift < 16; shift += 4)
        if (((value >> shift) & 0xF) > 9) return false;
    return true;
}

}  // namespace

uint16_t checkFirmwareImage(uint8_t const* image, size_t length, uint8_t hardwareRevision) {
    if (length < kCrcSize || readLe<uint32_t>(image) != crc32Of(image + kCrcSize, length - kCrcSize)) return 0;
    // A file with a sound CRC may still end inside the header.
    if (length < kFirmwareHeaderSize) return 0;
    std::string_view const magic = magicFor(hardwareRevision);
    if (!std::equal(magic.begin(), magic.end(), image + kMagicOffset)) return 0;
    auto const version = readLe<uint16_t>(image + kVersionOffset);
    if (!isBcd(version) || !isBcd(readLe<uint16_t>(image + kSecondVersionOffset))) return 0;
    if (uint64_t{readLe<uint32_t>(image + kPayloadLengthOffset)} + kFirmwareHeaderSize != length) return 0;
    return version;
}

std::vector<uint8_t> buildFirmwareImage(uint8_t hardwareRevision, uint16_t version, uint16_t secondVersion,
                                        std::vector<uint8_t> const& payload) {
    std::vector<uint8_t> image;
    image.reserve(kFirmwareHeaderSize + payload.size());
    ByteWriter(image)
        .write<uint32_t>(0)
        .writeString(magicFor(hardwareRevision), kMagicSize)
        .write<uint16_t>(version)
        .write<uint16_t>(secondVersion)
        .write<uint32_t>(static_cast<uint32_t>(payload.size()))
        .writeBytes(payload.data(), payload.size());
    writeLe<uint32_t>(image.data(), crc32Of(image.data() + kCrcSize, image.size() - kCrcSize));
    return image;
}
