#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "byte_io.h"
#include "crc32.h"
#include "firmware_image.h"
#include "firmware_location.h"

namespace {

uint32_t crcOfText(std::string_view text) {
    return crc32Of(reinterpret_cast<uint8_t const*>(text.data()), text.size());
}

TEST(FirmwareCrc32Test, MatchesTheStandardCheckValues) {
    EXPECT_EQ(crcOfText("123456789"), 0xCBF43926u);
    EXPECT_EQ(crcOfText("The quick brown fox jumps over the lazy dog"), 0x414FA339u);
    EXPECT_EQ(crcOfText(std::string_view("\0", 1)), 0xD202EF8Du);
    EXPECT_EQ(crcOfText(""), 0u);
}

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

// Writes the CRC that matches the rest of the file, so a test reaches the later checks.
void reseal(std::vector<uint8_t>& file) { writeLe<uint32_t>(file.data(), crc32Of(file.data() + 4, file.size() - 4)); }

std::vector<uint8_t> payloadOf(size_t length) {
    std::vector<uint8_t> payload(length);
    for (size_t i = 0; i < length; ++i) payload[i] = static_cast<uint8_t>(i * 31 + 7);
    return payload;
}

TEST(FirmwareImageTest, BuildsTheDocumentedHeader) {
    std::vector<uint8_t> const expected = {
        0xD5, 0xE8, 0xC4, 0xB3,                      // CRC-32 of the rest
        'Z',  'L',  'M',  'R',  'W', 'I', 'F', 'I',  // WiFi family magic
        0x23, 0x01, 0x56, 0x04,                      // both versions
        0x02, 0x00, 0x00, 0x00,                      // payload length
        0xAA, 0xBB,
    };
    EXPECT_EQ(buildFirmwareImage(0x41, 0x0123, 0x0456, {0xAA, 0xBB}), expected);
}

TEST(FirmwareImageTest, AcceptsPayloadsFromEmptyToAFullBlockAndReturnsTheVersion) {
    auto const empty = buildFirmwareImage(0x10, 0x9999, 0x0000, {});
    ASSERT_EQ(empty.size(), kFirmwareHeaderSize);
    EXPECT_EQ(checkFirmwareImage(empty.data(), empty.size(), 0x11), 0x9999);
    auto const full = buildFirmwareImage(0x26, 0x0312, 0x0100, payloadOf(4096 - kFirmwareHeaderSize));
    ASSERT_EQ(full.size(), 4096u);
    EXPECT_EQ(checkFirmwareImage(full.data(), full.size(), 0x26), 0x0312);
}

TEST(FirmwareImageTest, MagicMustMatchTheModelFamily) {
    struct Revision {
        uint8_t revision;
        std::string magic;
    };
    Revision const revisions[] = {{0x00, "ZLMRBLE0"}, {0x10, "ZLMRETHN"}, {0x1F, "ZLMRETHN"}, {0x23, "ZLMRBLE0"},
                                  {0x25, "ZLMRBLE0"}, {0x31, "ZLMRBLE0"}, {0x40, "ZLMRWIFI"}, {0x41, "ZLMRWIFI"},
                                  {0x4F, "ZLMRWIFI"}, {0x50, "ZLMRBLE0"}, {0xFF, "ZLMRBLE0"}};
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

TEST(FirmwareImageTest, RejectsACrcMismatch) {
    auto const good = buildFirmwareImage(0x41, 0x0200, 0x0000, payloadOf(256));
    for (size_t at : {size_t{0}, size_t{3}, size_t{4}, size_t{12}, size_t{19}, size_t{20}, good.size() - 1}) {
        auto file = good;
        file[at] ^= 0x01;
        EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x41), 0) << "byte " << at;
    }
}

TEST(FirmwareImageTest, BothVersionsMustBeBcd) {
    struct Case {
        uint16_t version;
        uint16_t secondVersion;
        bool accepted;
    };
    Case const cases[] = {
        {0x1A00, 0x0000, false}, {0x000A, 0x0000, false}, {0x00A0, 0x0000, false}, {0x0A00, 0x0000, false},
        {0xA000, 0x0000, false}, {0x0100, 0x000F, false}, {0x0100, 0xF000, false}, {0x0100, 0x0B00, false},
        {0x9999, 0x9999, true},  {0x0001, 0x0000, true},  {0x2024, 0x0815, true},
    };
    for (auto const& c : cases) {
        auto const file = buildFirmwareImage(0x30, c.version, c.secondVersion, payloadOf(32));
        EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x30), c.accepted ? c.version : 0)
            << std::hex << c.version << " " << c.secondVersion;
    }
}

TEST(FirmwareImageTest, PayloadLengthMustMatchTheFile) {
    auto const good = buildFirmwareImage(0x40, 0x0300, 0x0000, payloadOf(100));
    auto longer = good;
    longer.push_back(0);
    auto shorter = good;
    shorter.pop_back();
    std::vector<std::vector<uint8_t>> files = {longer, shorter};
    // Lengths whose sum with the header would wrap a 32-bit count.
    for (uint32_t length : {0xFFFFFFFFu, 0xFFFFFFECu, 0xFFFFFFF0u}) {
        files.push_back(good);
        writeLe<uint32_t>(files.back().data() + 16, length);
    }
    for (auto& file : files) {
        reseal(file);
        EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x40), 0)
            << file.size() << " bytes, length field " << readLe<uint32_t>(file.data() + 16);
    }
}

TEST(FirmwareImageTest, FilesEndingInsideTheHeaderAreRejectedWithinBounds) {
    auto const full = buildFirmwareImage(0x23, 0x0100, 0x0000, {});
    EXPECT_EQ(checkFirmwareImage(nullptr, 0, 0x23), 0);
    for (size_t length = 0; length < kFirmwareHeaderSize; ++length) {
        // An exactly sized heap block holding a prefix of a sound header whose
        // CRC covers just that prefix, so the checks go past the CRC; the
        // sanitizer builds catch any read beyond it.
        auto block = std::make_unique<uint8_t[]>(length);
        std::copy(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(length), block.get());
        if (length >= 4) writeLe<uint32_t>(block.get(), crc32Of(block.get() + 4, length - 4));
        for (uint8_t revision : {0x10, 0x23, 0x41})
            EXPECT_EQ(checkFirmwareImage(block.get(), length, revision), 0) << "length " << length;
    }
}

}  // namespace
