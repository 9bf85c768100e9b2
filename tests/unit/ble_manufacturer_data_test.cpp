// The 29-byte manufacturer data of the Bluetooth LE models: the exact layout,
// the compact encodings (millivolts, binary16) and what a decoder refuses.
#include "ble_manufacturer_data.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <tuple>
#include <vector>

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
