// Firmware files come from the update server or the user's disk. Each input is
// checked as it is and again with its CRC repaired, so the checks behind the CRC
// see mutated headers too.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "byte_io.h"
#include "crc32.h"
#include "firmware_image.h"

namespace {

constexpr uint8_t kRevisions[] = {0x00, 0x10, 0x11, 0x23, 0x30, 0x40, 0x41, 0xFF};

void checkAll(uint8_t const* data, size_t size) {
    for (uint8_t revision : kRevisions) {
        uint16_t const version = checkFirmwareImage(data, size, revision);
        // Whatever is accepted holds a whole header and reports the version in it.
        if (version != 0 && (size < kFirmwareHeaderSize || version != readLe<uint16_t>(data + 12))) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    checkAll(data, size);
    if (size >= 4) {
        // An exactly sized copy, so a read past the end shows in sanitizer builds.
        std::vector<uint8_t> sealed(data, data + size);
        writeLe<uint32_t>(sealed.data(), crc32Of(sealed.data() + 4, sealed.size() - 4));
        checkAll(sealed.data(), sealed.size());
    }
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    seeds.push_back(buildFirmwareImage(0x10, 0x0102, 0x0000, {}));
    seeds.push_back(buildFirmwareImage(0x23, 0x0312, 0x0100, {0xDE, 0xAD, 0xBE, 0xEF}));
    seeds.push_back(buildFirmwareImage(0x41, 0x9999, 0x2024, std::vector<uint8_t>(100, 0x5A)));
}
