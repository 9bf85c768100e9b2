#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
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

TEST(FirmwareLocationTest, OffersTheFileOfEachUpdatableRevision) {
    struct Case {
        uint8_t revision;
        uint16_t version;
        std::string path;
    };
    Case const cases[] = {
        {0x10, 0x0123, "/fwup/zlmrk/zlmrk_fw_dfu_from_0123.bin"},
        {0x11, 0x0000, "/fwup/zlmrk/zlmrk_fw_dfu_from_0000.bin"},
        {0x23, 0x1A0F, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_1a0f.bin"},
        {0x24, 0x0007, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_0007.bin"},
        {0x26, 0x0312, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_0312.bin"},
        {0x27, 0x0312, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_0312.bin"},
        {0x30, 0x0100, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_0100.bin"},
        {0x31, 0xFFFF, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_ffff.bin"},
        {0x40, 0x0250, "/fwup/zlmrv/zlmrv_fw_dfu_from_0250.bin"},
        {0x41, 0xBEEF, "/fwup/zlmrv2/zlmrv2_fw_dfu_from_beef.bin"},
    };
    for (auto const& c : cases) EXPECT_EQ(firmwareFilePath(c.revision, c.version), c.path) << int{c.revision};
}

TEST(FirmwareLocationTest, OffersNothingToOtherRevisions) {
    EXPECT_EQ(firmwareFilePath(0x25, 0x0100), "");
    std::vector<int> offered;
    for (int revision = 0; revision <= 0xFF; ++revision)
        if (!firmwareFilePath(static_cast<uint8_t>(revision), 0x0100).empty()) offered.push_back(revision);
    EXPECT_EQ(offered, (std::vector<int>{0x10, 0x11, 0x23, 0x24, 0x26, 0x27, 0x30, 0x31, 0x40, 0x41}));
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

TEST(FirmwareImageTest, AcceptsA4096ByteImageAndReturnsItsVersion) {
    auto const file = buildFirmwareImage(0x26, 0x0312, 0x0100, payloadOf(4096 - kFirmwareHeaderSize));
    ASSERT_EQ(file.size(), 4096u);
    EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x26), 0x0312);
}

TEST(FirmwareImageTest, AcceptsAnEmptyPayload) {
    auto const file = buildFirmwareImage(0x10, 0x9999, 0x0000, {});
    ASSERT_EQ(file.size(), kFirmwareHeaderSize);
    EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x11), 0x9999);
}

TEST(FirmwareImageTest, MagicMustMatchTheModelFamily) {
    // Revisions and the magic their family expects: 0 BLE, 1 LAN, 2 WiFi.
    struct Revision {
        uint8_t revision;
        int family;
    };
    Revision const revisions[] = {{0x00, 0}, {0x10, 1}, {0x1F, 1}, {0x23, 0}, {0x25, 0}, {0x31, 0},
                                  {0x40, 2}, {0x41, 2}, {0x4F, 2}, {0x50, 0}, {0xFF, 0}};
    for (auto const& built : revisions) {
        auto const file = buildFirmwareImage(built.revision, 0x0102, 0x0304, payloadOf(64));
        for (auto const& offered : revisions) {
            uint16_t const expected = built.family == offered.family ? 0x0102 : 0;
            EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), offered.revision), expected)
                << "built for " << int{built.revision} << ", offered to " << int{offered.revision};
        }
    }
}

TEST(FirmwareImageTest, BleImageOfferedToAWifiModelIsRejected) {
    auto const file = buildFirmwareImage(0x23, 0x0200, 0x0000, payloadOf(256));
    ASSERT_EQ(std::string(file.begin() + 4, file.begin() + 12), "ZLMRBLE0");
    EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x23), 0x0200);
    EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x41), 0);
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
    reseal(longer);
    EXPECT_EQ(checkFirmwareImage(longer.data(), longer.size(), 0x40), 0);

    auto shorter = good;
    shorter.pop_back();
    reseal(shorter);
    EXPECT_EQ(checkFirmwareImage(shorter.data(), shorter.size(), 0x40), 0);

    // A length whose sum with the header would wrap a 32-bit count.
    for (uint32_t length : {0xFFFFFFFFu, 0xFFFFFFECu, 0xFFFFFFF0u}) {
        auto file = good;
        writeLe<uint32_t>(file.data() + 16, length);
        reseal(file);
        EXPECT_EQ(checkFirmwareImage(file.data(), file.size(), 0x40), 0) << length;
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
