#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "byte_io.h"
#include "crc32.h"
#include "firmware_image.h"
#include "firmware_location.h"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(FirmwareLocationTest, OffersTheFileOfEachUpdatableRevisionOnly) {
    struct Offer {
        uint16_t version;
        std::string path;
    };
    std::map<int, Offer> const offers = {
        {0x10, {0x0123, "/fwup/zlmrk/zlmrk_fw_dfu_from_0123.bin"}},
        {0x11, {0x0000, "/fwup/zlmrk/zlmrk_fw_dfu_from_0000.bin"}},
        {0x23, {0x1A0F, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_1a0f.bin"}},
        {0x24, {0x0007, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_0007.bin"}},
        {0x26, {0x0312, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_0312.bin"}},
        {0x27, {0x0312, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_0312.bin"}},
        {0x30, {0x0100, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_0100.bin"}},
        {0x31, {0xFFFF, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_ffff.bin"}},
        {0x40, {0x0250, "/fwup/zlmrv/zlmrv_fw_dfu_from_0250.bin"}},
        {0x41, {0xBEEF, "/fwup/zlmrv2/zlmrv2_fw_dfu_from_beef.bin"}},
    };
    for (int revision = 0; revision <= 0xFF; ++revision) {
        auto const offer = offers.find(revision);
        uint16_t const version = offer == offers.end() ? 0x0100 : offer->second.version;
        EXPECT_EQ(firmwareFilePath(static_cast<uint8_t>(revision), version),
                  offer == offers.end() ? "" : offer->second.path)
            << revision;
    }
}

Bytes payloadOf(size_t length) {
    Bytes payload(length);
    for (size_t i = 0; i < length; ++i) payload[i] = static_cast<uint8_t>(i * 31 + 7);
    return payload;
}

TEST(FirmwareImageTest, GoldenHeader) {
    Bytes const expected = {
        0xD5, 0xE8, 0xC4, 0xB3,                      // CRC-32 of the rest
        'Z',  'L',  'M',  'R',  'W', 'I', 'F', 'I',  // WiFi family magic
        0x23, 0x01, 0x56, 0x04,                      // both versions
        0x02, 0x00, 0x00, 0x00,                      // payload length
        0xAA, 0xBB,
    };
    EXPECT_EQ(buildFirmwareImage(0x41, 0x0123, 0x0456, {0xAA, 0xBB}), expected);
    auto const empty = buildFirmwareImage(0x10, 0x9999, 0x0000, {});
    ASSERT_EQ(empty.size(), kFirmwareHeaderSize);
    EXPECT_EQ(checkFirmwareImage(empty.data(), empty.size(), 0x11), 0x9999);
}

TEST(FirmwareImageTest, MagicMustMatchTheModelFamily) {
    struct Revision {
        uint8_t revision;
        std::string magic;
    } const revisions[] = {{0x00, "ZLMRBLE0"}, {0x10, "ZLMRETHN"}, {0x1F, "ZLMRETHN"}, {0x23, "ZLMRBLE0"},
                           {0x31, "ZLMRBLE0"}, {0x40, "ZLMRWIFI"}, {0x4F, "ZLMRWIFI"}, {0x50, "ZLMRBLE0"}};
    for (auto const& built : revisions) {
        auto const file = buildFirmwareImage(built.revision, 0x0102, 0x0304, payloadOf(64));
        EXPECT_EQ(std::string(file.begin() + 4, file.begin() + 12), built.magic) << int{built.revision};
        for (auto const& offered : revisions) {
            EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), offered.revision),
                      built.magic == offered.magic ? 0x0102 : 0)
                << "built for " << int{built.revision} << ", offered to " << int{offered.revision};
        }
    }
}

// Each changed file gets a CRC that matches it, so that the later checks are
// reached. Both versions are decimal digits, a nibble each; a length field
// whose sum with the header would wrap a 32-bit count is refused like any other
// that does not match the file.
TEST(FirmwareImageTest, RejectsBadVersionsAndLengths) {
    struct Case {
        uint16_t version;
        uint16_t secondVersion;
        int lengthChange;      // bytes added to the file
        uint32_t lengthField;  // 0: the true one
        bool accepted;
    } const cases[] = {
        {0x000A, 0, 0, 0, false},          {0xA000, 0, 0, 0, false},          {0x0100, 0x000F, 0, 0, false},
        {0x0100, 0xF000, 0, 0, false},     {0x9999, 0x9999, 0, 0, true},      {0x2024, 0x0815, 0, 0, true},
        {0x0300, 0, 1, 0, false},          {0x0300, 0, -1, 0, false},         {0x0300, 0, 0, 0xFFFFFFFF, false},
        {0x0300, 0, 0, 0xFFFFFFEC, false}, {0x0300, 0, 0, 0xFFFFFFF0, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.version << " " << c.secondVersion << " " << c.lengthChange
                                        << " " << c.lengthField);
        auto file = buildFirmwareImage(0x30, c.version, c.secondVersion, payloadOf(100));
        file.resize(static_cast<size_t>(static_cast<int>(file.size()) + c.lengthChange));
        if (c.lengthField != 0) writeLe<uint32_t>(file.data() + 16, c.lengthField);
        writeLe<uint32_t>(file.data(), crc32Of(file.data() + 4, file.size() - 4));
        EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x30), c.accepted ? c.version : 0);
    }
    auto const good = buildFirmwareImage(0x41, 0x0200, 0x0000, payloadOf(256));
    for (size_t at : {size_t{0}, size_t{3}, size_t{4}, size_t{12}, size_t{19}, size_t{20}, good.size() - 1}) {
        auto file = good;
        file[at] ^= 0x01;
        EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x41), 0) << "CRC, byte " << at;
    }
}

}  // namespace
