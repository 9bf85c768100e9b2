// Bluetooth UUIDs: the text forms and the wire forms, and what is refused.
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

// A 16-bit UUID stands for the base UUID with its number in bytes 12 and 13.
TEST(BleUuid, TextAndWireFormsAgree) {
    struct Case {
        char const* text;
        char const* written;
        char const* written128;
        char const* wire;
    } const cases[] = {
        {"2A19", "2a19", "00002a19-0000-1000-8000-00805f9b34fb", "19 2a"},
        {"EC7C0000-2C7B-1539-172F-29D041BEAB3E", kDeviceService, kDeviceService, kDeviceServiceWire},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        std::optional<BleUUID> const uuid = BleUUID::parse(c.text);
        ASSERT_TRUE(uuid);
        EXPECT_EQ(uuid->toString(), c.written);
        EXPECT_EQ(uuid->toString128(), c.written128);
        std::vector<uint8_t> const wire = fromHex(c.wire);
        std::optional<BleUUID> const fromWire = BleUUID::fromWire(wire.data(), wire.size());
        ASSERT_TRUE(fromWire);
        EXPECT_EQ(fromWire->toString(), c.written);
        EXPECT_EQ(hex(uuid->wireBytes128()),
                  wire.size() == 2 ? "fb 34 9b 5f 80 00 00 80 00 10 00 00 19 2a 00 00" : c.wire);
    }
}

TEST(BleUuid, OtherTextsAndWireLengthsAreRefused) {
    for (char const* text : {"", "180", "180f0", "18g0", "ec7c0000-2c7b-1539-172f-29d041beab3",
                             "ec7c0000-2c7b-1539-172f-29d041beab3e0", "ec7c0000-2c7b-1539-172f-29d041beab3g",
                             "ec7c0000+2c7b-1539-172f-29d041beab3e", "ec7c000-02c7b-1539-172f-29d041beab3e"})
        EXPECT_FALSE(BleUUID::parse(text)) << text;
    for (size_t length : {0u, 1u, 3u, 15u, 17u})
        EXPECT_FALSE(BleUUID::fromWire(std::vector<uint8_t>(length, 0x11).data(), length)) << length;
}

}  // namespace
