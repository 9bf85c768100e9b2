// Bluetooth UUIDs: text forms, the 128-bit wire form and equality.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "ble_uuid.h"
#include "test_bytes.h"

namespace {

constexpr char const* kDeviceService = "ec7c0000-2c7b-1539-172f-29d041beab3e";
// The same UUID least significant byte first, as discovery answers carry it.
constexpr char const* kDeviceServiceWire = "3e ab be 41 d0 29 2f 17 39 15 7b 2c 00 00 7c ec";

TEST(BleUuid, ParsesAndWritesShortAndLongTexts) {
    constexpr char const* kBase = "-0000-1000-8000-00805f9b34fb";
    struct Case {
        char const* text;
        bool is16Bit;
        uint16_t value16;
        char const* wire;
        std::string written;
        std::string written128;
    } const cases[] = {
        {"180f", true, 0x180F, "fb 34 9b 5f 80 00 00 80 00 10 00 00 0f 18 00 00", "180f",
         "0000180f" + std::string(kBase)},
        {"2A19", true, 0x2A19, "fb 34 9b 5f 80 00 00 80 00 10 00 00 19 2a 00 00", "2a19",
         "00002a19" + std::string(kBase)},
        {kDeviceService, false, 0, kDeviceServiceWire, kDeviceService, kDeviceService},
        {"EC7C0000-2C7B-1539-172F-29D041BEAB3E", false, 0, kDeviceServiceWire, kDeviceService, kDeviceService},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        std::optional<BleUUID> const uuid = BleUUID::parse(c.text);
        ASSERT_TRUE(uuid);
        EXPECT_EQ(uuid->is16Bit(), c.is16Bit);
        EXPECT_EQ(uuid->value16(), c.value16);
        EXPECT_EQ(hex(uuid->wireBytes128()), c.wire);
        EXPECT_EQ(uuid->toString(), c.written);
        EXPECT_EQ(uuid->toString128(), c.written128);
    }
}

TEST(BleUuid, RejectsOtherTexts) {
    char const* const cases[] = {
        "",
        "180",
        "180f0",
        "18g0",
        " 180f",
        "ec7c0000-2c7b-1539-172f-29d041beab3",
        "ec7c0000-2c7b-1539-172f-29d041beab3e0",
        "ec7c00002c7b-1539-172f-29d041beab3e0",
        "ec7c0000-2c7b-1539-172f-29d041beab3g",
        "ec7c0000+2c7b-1539-172f-29d041beab3e",
        "ec7c000-02c7b-1539-172f-29d041beab3e",
        "{ec7c0000-2c7b-1539-172f-29d041beab}",
    };
    for (char const* text : cases) EXPECT_FALSE(BleUUID::parse(text)) << text;
}

TEST(BleUuid, ReadsWireBytesLeastSignificantFirst) {
    std::vector<uint8_t> const shortWire = fromHex("19 2a");
    std::optional<BleUUID> const level = BleUUID::fromWire(shortWire.data(), shortWire.size());
    ASSERT_TRUE(level);
    EXPECT_TRUE(level->is16Bit());
    EXPECT_EQ(level->value16(), 0x2A19);

    std::vector<uint8_t> const longWire = fromHex(kDeviceServiceWire);
    std::optional<BleUUID> const device = BleUUID::fromWire(longWire.data(), longWire.size());
    ASSERT_TRUE(device);
    EXPECT_FALSE(device->is16Bit());
    EXPECT_EQ(device->toString(), kDeviceService);

    for (size_t length : {0u, 1u, 3u, 15u, 17u}) {
        std::vector<uint8_t> const bytes(length, 0x11);
        EXPECT_FALSE(BleUUID::fromWire(bytes.data(), bytes.size())) << length;
    }
}

TEST(BleUuid, EqualWhenTheyNameTheSame128Bits) {
    EXPECT_EQ(BleUUID(0x2902), *BleUUID::parse("00002902-0000-1000-8000-00805f9b34fb"));
    EXPECT_EQ(*BleUUID::parse("2902"), BleUUID(0x2902));
    EXPECT_FALSE(BleUUID(0x2902) == BleUUID(0x2903));
    EXPECT_FALSE(BleUUID(0x2902) == *BleUUID::parse("00002902-0000-1000-8000-00805f9b34fc"));
    EXPECT_FALSE(*BleUUID::parse(kDeviceService) == *BleUUID::parse("ec7c0001-2c7b-1539-172f-29d041beab3e"));
}

}  // namespace
