// The 29-byte manufacturer data of the Bluetooth LE models: the exact layout,
// the compact encodings (millivolts, binary16) and what a decoder refuses.
#include "ble_manufacturer_data.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <optional>
#include <tuple>
#include <vector>

#include "ble_uuid.h"
#include "bluetooth_address.h"
#include "live_data_decoder.h"
#include "live_data_frame.h"
#include "test_bytes.h"

namespace {

using Advertisement = ZelmorScanner::Advertisement;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

Advertisement goldenReadings() {
    Advertisement ad;
    ad.hardwareRevision = 0x23;
    ad.firmwareVersion = 0x0132;
    ad.time = 1700000000;
    ad.voltage1 = 13.284f;
    ad.voltage2 = 12.611f;
    ad.current = 12.5f;
    ad.power = -150.0f;
    ad.temperature = 21.25f;
    ad.coulombMeter = -12345;
    ad.energyWh = 1234.5f;
    ad.stateOfCharge = 87;
    ad.runtime = 1234;
    ad.powerStatus = 1;
    ad.status = 0x05;
    return ad;
}

// Worked out field by field from the layout (binary16 and float32 checked
// against an independent implementation).
constexpr char kGoldenBytes[] =
    "23 32 01 00 f1 53 65 e4 33 43 31 40 4a b0 d8 50 4d c7 cf ff ff 00 50 9a 44 57 d2 04 51";

/// Encodes `readings`, and checks that what the decoder reads from the bytes
/// encodes to the very same bytes: every table below pins the decoder too.
ManufacturerData encodedAndReadBack(Advertisement const& readings) {
    ManufacturerData const bytes = encodeManufacturerData(readings);
    Advertisement back;
    EXPECT_TRUE(decodeManufacturerData(bytes.data(), bytes.size(), back));
    EXPECT_EQ(hex(encodeManufacturerData(back)), hex(bytes));
    return bytes;
}

/// The value of a finite binary16, worked out from its fields.
float halfValue(uint16_t half) {
    int const exponent = (half >> 10) & 0x1F;
    int const mantissa = half & 0x3FF;
    float const magnitude = exponent == 0 ? std::ldexp(static_cast<float>(mantissa), -24)
                                          : std::ldexp(static_cast<float>(mantissa + 0x400), exponent - 25);
    return (half & 0x8000) ? -magnitude : magnitude;
}

// Bluetooth UUIDs: the text forms and the wire forms, and what is refused.
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

// The live readings pushed by the Bluetooth LE models: byte-exact frames of
// both forms and the lengths the decoder takes; the BLE link tests feed the
// decoder whole notifications.
// Firmware 2.50 and the readings in wire order: time 1763800000, status 5,
// 13.25 V, 12.5 V, -4.5 A, -59.625 W, -12345 mAh, 987654 mWh, 21.5 °C, power
// status 1, 87 %, 1439 minutes.
constexpr char kFullFrame[] =
    "50 02 23 c0 73 21 69 05 00 00 00 00 00 54 41 00 00 48 41 00 00 90 c0 00 80 6e c2 c7 cf ff ff ff ff ff ff "
    "06 12 0f 00 00 00 00 00 00 00 ac 41 01 57 9f 05";
// The same readings from a 0x31 model, without the second voltage.
constexpr char kShortFrame[] =
    "50 02 31 c0 73 21 69 05 00 00 00 00 00 54 41 00 00 90 c0 00 80 6e c2 c7 cf ff ff ff ff ff ff 06 12 0f 00 "
    "00 00 00 00 00 00 ac 41 01 57 9f 05";

}  // namespace

TEST(ManufacturerData, GoldenVectorIsByteExactBothWays) {
    EXPECT_EQ(hex(encodedAndReadBack(goldenReadings())), kGoldenBytes);
}

// Readings go into their fields rounded and clamped: millivolts up to 65534
// (0xffff: missing); binary16 with infinity above its range, zero below it and
// NaN kept; the coulomb meter saturated to 32 bits; the power status (at most
// 15) in the low nibble of the status byte, the low four status bits above it.
TEST(ManufacturerData, ReadingsAreRoundedAndClampedIntoTheirFields) {
    struct Case {
        void (*set)(Advertisement&);
        size_t offset, length;
        char const* bytes;
    } const cases[] = {
        {[](Advertisement& a) { a.voltage1 = 13.2844f; }, 7, 2, "e4 33"},
        {[](Advertisement& a) { a.voltage1 = 13.2846f; }, 7, 2, "e5 33"},
        {[](Advertisement& a) { a.voltage1 = -1.0f; }, 7, 2, "00 00"},
        {[](Advertisement& a) { a.voltage1 = 65.5349f; }, 7, 2, "fe ff"},
        {[](Advertisement& a) { a.voltage2 = kNaN; }, 9, 2, "ff ff"},
        {[](Advertisement& a) { a.current = kInfinity; }, 11, 2, "00 7c"},
        {[](Advertisement& a) { a.power = -1e6f; }, 13, 2, "00 fc"},
        {[](Advertisement& a) { a.temperature = 1e-30f; }, 15, 2, "00 00"},
        {[](Advertisement& a) { a.current = kNaN; }, 11, 2, "00 7e"},
        // A payload only in the bits binary16 drops must not turn into infinity.
        {[](Advertisement& a) { a.power = std::bit_cast<float>(uint32_t{0x7F800001}); }, 13, 2, "00 7e"},
        {[](Advertisement& a) { a.coulombMeter = 0x80000000; }, 17, 4, "ff ff ff 7f"},
        {[](Advertisement& a) { a.coulombMeter = -0x80000001LL; }, 17, 4, "00 00 00 80"},
        {[](Advertisement& a) { a.powerStatus = 16; }, 28, 1, "5f"},
        {[](Advertisement& a) { a.status = 0x0F; }, 28, 1, "f1"},
        {[](Advertisement& a) { a.status = 0xFFFFFFF6; }, 28, 1, "61"},
    };
    for (Case const& c : cases) {
        Advertisement in = goldenReadings();
        c.set(in);
        EXPECT_EQ(hex(encodedAndReadBack(in).data() + c.offset, c.length), c.bytes) << &c - cases;
    }
}

// Exactly 29 bytes from a 0x2_ or 0x3_ model; what is refused leaves the advertisement alone.
TEST(ManufacturerData, OnlyTwentyNineBytesFromABluetoothModelAreTaken) {
    std::tuple<size_t, uint8_t, bool> const cases[] = {{0, 0x23, false},  {28, 0x23, false}, {30, 0x23, false},
                                                       {29, 0x1F, false}, {29, 0x20, true},  {29, 0x3F, true},
                                                       {29, 0x40, false}};
    std::vector<uint8_t> bytes = fromHex(kGoldenBytes);
    bytes.push_back(0);
    for (auto const& [length, revision, taken] : cases) {
        bytes[0] = revision;
        Advertisement ad;
        ad.time = 5;
        EXPECT_EQ(decodeManufacturerData(bytes.data(), length, ad), taken) << length << " " << int{revision};
        EXPECT_EQ(ad.time, taken ? 1700000000u : 5u);
    }
}

// Every finite half decodes to its value and encodes back; floats just either
// side of halfway to the next half round to the nearer, halfway to the even
// one. Infinity begins halfway from the largest finite half to 65536.
TEST(HalfFloat, EveryHalfDecodesAndFloatsRoundToTheNearestTiesToEven) {
    for (uint16_t half = 0; half < 0x7C00; ++half) {
        auto const up = static_cast<uint16_t>(half + 1);
        float const value = halfValue(half);
        float const middle = (value + (up == 0x7C00 ? 0x1p16f : halfValue(up))) / 2;
        uint16_t const even = (half & 1) ? up : half;
        for (uint16_t const sign : {0x0000, 0x8000}) {
            float const s = sign ? -1.0f : 1.0f;
            ASSERT_EQ(std::bit_cast<uint32_t>(halfToFloat(sign | half)), std::bit_cast<uint32_t>(s * value)) << half;
            ASSERT_EQ(floatToHalf(s * value), sign | half) << std::hex << half;
            ASSERT_EQ(floatToHalf(s * std::nextafter(middle, 0.0f)), sign | half) << std::hex << half;
            ASSERT_EQ(floatToHalf(s * middle), sign | even) << std::hex << half;
            ASSERT_EQ(floatToHalf(s * std::nextafter(middle, kInfinity)), sign | up) << std::hex << half;
        }
    }
    EXPECT_EQ(halfToFloat(0x7C00), kInfinity);
    EXPECT_EQ(halfToFloat(0xFC00), -kInfinity);
    for (uint16_t nan : {0x7C01, 0x7E00, 0xFE00, 0xFFFF}) EXPECT_TRUE(std::isnan(halfToFloat(nan))) << std::hex << nan;
}

// The simulator writes both forms byte for byte; the BLE link tests read the
// device's own frames back through the decoder, field by field.
TEST(LiveDataFrame, SimulatorWritesBothForms) {
    sim::MonitorReadings r;  // its fields in order, the temperature before the meters
    r = {1763800000, 5, 13.25f, 12.5f, -4.5f, -59.625f, 21.5f, -12345, 987654, sim::PowerStatus::On, 87, 1439};
    EXPECT_EQ(hex(sim::encodeLiveDataFrame(0x0250, 0x23, r)), kFullFrame);
    EXPECT_EQ(hex(sim::encodeLiveDataFrame(0x0250, 0x31, r)), kShortFrame);
}

// 51 bytes from a 0x2_ model, 47 from a 0x3_ one, nothing from the network models.
TEST(LiveDataFrame, LengthMustFitTheRevision) {
    std::tuple<uint8_t, size_t, bool> const cases[] = {{0x20, 51, true},  {0x2F, 51, true},  {0x30, 47, true},
                                                       {0x30, 51, false}, {0x23, 47, false}, {0x41, 51, false},
                                                       {0x10, 51, false}, {0x23, 52, false}, {0x23, 2, false}};
    for (auto const& [revision, length, accepted] : cases) {
        std::vector<uint8_t> frame(length, 0);
        if (length > 2) frame[2] = revision;
        EXPECT_EQ(decodeLiveDataFrame(frame.data(), frame.size()).has_value(), accepted)
            << std::hex << int(revision) << " " << std::dec << length;
    }
}

TEST(BluetoothAddress, TextFormRoundTripsWithTheFirstFieldMostSignificant) {
    EXPECT_EQ(parseBluetoothAddress("C2:5A:4C:00:00:01"), 0xC25A4C000001u);
    EXPECT_EQ(formatBluetoothAddress(0xC25A4C000001), "C2:5A:4C:00:00:01");
    for (char const* bad : {"", "C2:5A:4C:00:00", "C2:5A:4C:00:00:01:02", "C2-5A:4C:00:00:01", "C2:5A:4C:00:00:0G",
                            "C2:5A:4C:00:00:+1", "C25A4C000001"})
        EXPECT_FALSE(parseBluetoothAddress(bad)) << bad;
}
