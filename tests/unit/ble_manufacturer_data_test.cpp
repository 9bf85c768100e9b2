// The 29-byte manufacturer data of the Bluetooth LE models: the exact layout,
// the compact encodings (millivolts, binary16) and what a decoder refuses.
#include "ble_manufacturer_data.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "test_bytes.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

ZelmorScanner::Advertisement goldenReadings() {
    ZelmorScanner::Advertisement ad;
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

ZelmorScanner::Advertisement decoded(ManufacturerData const& bytes) {
    ZelmorScanner::Advertisement ad;
    EXPECT_TRUE(decodeManufacturerData(bytes.data(), bytes.size(), ad));
    return ad;
}

ZelmorScanner::Advertisement roundTrip(ZelmorScanner::Advertisement const& ad) {
    return decoded(encodeManufacturerData(ad));
}

bool sameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

TEST(ManufacturerDataLayout, GoldenVectorIsByteExactBothWays) {
    EXPECT_EQ(hex(encodeManufacturerData(goldenReadings())), kGoldenBytes);
    // Decoding fills only the readings and the identity.
    ZelmorScanner::Advertisement ad;
    ad.source = ZelmorScanner::Advertisement::Source::Bluetooth;
    ad.name = "Van";
    ad.serial = 77;
    ad.rssi = -60;
    ad.bluetoothAddress = 0xC25A4C000001;
    ad.randomAddress = true;
    std::vector<uint8_t> const bytes = fromHex(kGoldenBytes);
    ASSERT_TRUE(decodeManufacturerData(bytes.data(), bytes.size(), ad));
    EXPECT_EQ(ad.hardwareRevision, 0x23);
    EXPECT_EQ(ad.firmwareVersion, 0x0132);
    EXPECT_EQ(ad.time, 1700000000u);
    EXPECT_FLOAT_EQ(ad.voltage1, 13.284f);
    EXPECT_FLOAT_EQ(ad.voltage2, 12.611f);
    EXPECT_EQ(ad.current, 12.5f);
    EXPECT_EQ(ad.power, -150.0f);
    EXPECT_EQ(ad.temperature, 21.25f);
    EXPECT_EQ(ad.coulombMeter, -12345);
    EXPECT_EQ(ad.energyWh, 1234.5f);
    EXPECT_EQ(ad.stateOfCharge, 87);
    EXPECT_EQ(ad.runtime, 1234);
    EXPECT_EQ(ad.powerStatus, 1);
    EXPECT_EQ(ad.status, 0x05u);
    EXPECT_EQ(ad.source, ZelmorScanner::Advertisement::Source::Bluetooth);
    EXPECT_EQ(ad.name, "Van");
    EXPECT_EQ(ad.serial, 77u);
    EXPECT_EQ(ad.rssi, -60);
    EXPECT_EQ(ad.bluetoothAddress, 0xC25A4C000001u);
    EXPECT_TRUE(ad.randomAddress);
}

TEST(ManufacturerDataRoundTrip, ReadingsSurviveWithinTheirResolution) {
    struct Case {
        float voltage1, voltage2, current, power, temperature;
        int64_t coulombMeter;
        float energyWh;
        uint8_t stateOfCharge;
        uint16_t runtime;
    };
    Case const cases[] = {
        {0, 0, 0, 0, 0, 0, 0, 0, 0},
        {26.7f, 13.1f, -35.5f, -947.25f, -12.75f, -200000, -5.25f, 100, 65534},
        {65.534f, 0.001f, 0.0625f, 3.0f, 60.5f, 2147483647, 1e9f, 255, 65535},
        {3.3f, 4.2f, -0.001f, 65504.0f, -40.0f, -2147483648LL, 0.125f, 101, 1},
    };
    for (Case const& c : cases) {
        ZelmorScanner::Advertisement in = goldenReadings();
        in.voltage1 = c.voltage1;
        in.voltage2 = c.voltage2;
        in.current = c.current;
        in.power = c.power;
        in.temperature = c.temperature;
        in.coulombMeter = c.coulombMeter;
        in.energyWh = c.energyWh;
        in.stateOfCharge = c.stateOfCharge;
        in.runtime = c.runtime;
        ZelmorScanner::Advertisement const out = roundTrip(in);
        SCOPED_TRACE(testing::Message() << "voltage1 " << c.voltage1 << " current " << c.current);
        EXPECT_NEAR(out.voltage1, c.voltage1, 0.0005);
        EXPECT_NEAR(out.voltage2, c.voltage2, 0.0005);
        // binary16 keeps 11 significant bits.
        EXPECT_NEAR(out.current, c.current, std::fabs(c.current) / 2048 + 1e-7);
        EXPECT_NEAR(out.power, c.power, std::fabs(c.power) / 2048);
        EXPECT_NEAR(out.temperature, c.temperature, std::fabs(c.temperature) / 2048);
        EXPECT_EQ(out.coulombMeter, c.coulombMeter);
        EXPECT_EQ(out.energyWh, c.energyWh);
        EXPECT_EQ(out.stateOfCharge, c.stateOfCharge);
        EXPECT_EQ(out.runtime, c.runtime);
    }
}

// The status nibbles are the status byte's concern below.
TEST(ManufacturerDataRoundTrip, IdentitySurvives) {
    for (uint8_t revision : {0x20, 0x23, 0x2F, 0x30, 0x3F}) {
        ZelmorScanner::Advertisement in = goldenReadings();
        in.hardwareRevision = revision;
        in.firmwareVersion = static_cast<uint16_t>(0xFE00 + revision);
        in.time = 0xFEDCBA98;
        ZelmorScanner::Advertisement const out = roundTrip(in);
        EXPECT_EQ(out.hardwareRevision, revision);
        EXPECT_EQ(out.firmwareVersion, in.firmwareVersion);
        EXPECT_EQ(out.time, 0xFEDCBA98u);
    }
}

TEST(ManufacturerDataRoundTrip, MissingVoltageIsMarkedAndStaysNotANumber) {
    struct Case {
        float voltage1, voltage2;
        char const* bytes;
    } const cases[] = {{13.284f, kNaN, "e4 33 ff ff"}, {kNaN, 12.611f, "ff ff 43 31"}};
    auto const same = [](float got, float expected) {
        return std::isnan(expected) ? std::isnan(got) : std::fabs(got - expected) < 0.0005f;
    };
    for (Case const& c : cases) {
        ZelmorScanner::Advertisement in = goldenReadings();
        in.voltage1 = c.voltage1;
        in.voltage2 = c.voltage2;
        ManufacturerData const bytes = encodeManufacturerData(in);
        EXPECT_EQ(hex(bytes.data() + 7, 4), c.bytes);
        ZelmorScanner::Advertisement const out = decoded(bytes);
        EXPECT_TRUE(same(out.voltage1, c.voltage1)) << c.bytes;
        EXPECT_TRUE(same(out.voltage2, c.voltage2)) << c.bytes;
    }
}

TEST(ManufacturerDataClamping, VoltagesRoundToMillivoltsWithinTheirRange) {
    struct Case {
        float volts;
        char const* bytes;
    };
    Case const cases[] = {
        {13.2844f, "e4 33"},   {13.2846f, "e5 33"}, {0.0f, "00 00"},     {-1.0f, "00 00"},
        {-kInfinity, "00 00"}, {65.534f, "fe ff"},  {65.5349f, "fe ff"}, {70.0f, "fe ff"},
        {kInfinity, "fe ff"},  {0.0004f, "00 00"},  {0.0006f, "01 00"},
    };
    for (Case const& c : cases) {
        ZelmorScanner::Advertisement in = goldenReadings();
        in.voltage1 = c.volts;
        in.voltage2 = c.volts;
        ManufacturerData const bytes = encodeManufacturerData(in);
        EXPECT_EQ(hex(bytes.data() + 7, 2), c.bytes) << c.volts;
        EXPECT_EQ(hex(bytes.data() + 9, 2), c.bytes) << c.volts;
    }
}

TEST(ManufacturerDataClamping, CoulombMeterSaturatesToThirtyTwoBits) {
    struct Case {
        int64_t mah;
        int32_t sent;
    };
    Case const cases[] = {
        {int64_t{1} << 40, std::numeric_limits<int32_t>::max()},
        {-(int64_t{1} << 40), std::numeric_limits<int32_t>::min()},
        {int64_t{std::numeric_limits<int32_t>::max()} + 1, std::numeric_limits<int32_t>::max()},
        {-7, -7},
    };
    for (Case const& c : cases) {
        ZelmorScanner::Advertisement in = goldenReadings();
        in.coulombMeter = c.mah;
        EXPECT_EQ(roundTrip(in).coulombMeter, c.sent) << c.mah;
    }
}

TEST(ManufacturerDataClamping, StatusByteKeepsFourBitsOfEach) {
    struct Case {
        uint8_t powerStatus;
        uint32_t status;
        uint8_t byte;
    };
    Case const cases[] = {
        {0, 0, 0x00},          {8, 0x04, 0x48},   {15, 0x0F, 0xFF},
        {16, 0, 0x0F},         {200, 0x10, 0x0F},  // power status clamped; status bits above 3 not sent
        {3, 0xFFFFFFF6, 0x63},
    };
    for (Case const& c : cases) {
        ZelmorScanner::Advertisement in = goldenReadings();
        in.powerStatus = c.powerStatus;
        in.status = c.status;
        ManufacturerData const bytes = encodeManufacturerData(in);
        EXPECT_EQ(bytes[28], c.byte) << int{c.powerStatus} << " " << c.status;
        ZelmorScanner::Advertisement const out = decoded(bytes);
        EXPECT_EQ(out.powerStatus, c.byte & 0x0F);
        EXPECT_EQ(out.status, static_cast<uint32_t>(c.byte >> 4));
    }
}

// What is refused leaves the advertisement alone.
TEST(ManufacturerDataRefusal, OnlyTwentyNineBytesFromABluetoothModelAreTaken) {
    struct Case {
        size_t length;
        uint8_t revision;
        bool taken;
    } const cases[] = {{0, 0x23, false},  {1, 0x23, false},  {28, 0x23, false}, {30, 0x23, false}, {29, 0x00, false},
                       {29, 0x10, false}, {29, 0x1F, false}, {29, 0x20, true},  {29, 0x2F, true},  {29, 0x30, true},
                       {29, 0x3F, true},  {29, 0x40, false}, {29, 0x41, false}, {29, 0xFF, false}};
    ManufacturerData const good = encodeManufacturerData(goldenReadings());
    for (Case const& c : cases) {
        std::vector<uint8_t> bytes(good.begin(), good.end());
        bytes.push_back(0);
        bytes[0] = c.revision;
        ZelmorScanner::Advertisement ad;
        ad.time = 5;
        ad.hardwareRevision = 0x99;
        EXPECT_EQ(decodeManufacturerData(bytes.data(), c.length, ad), c.taken) << c.length << " " << int{c.revision};
        EXPECT_EQ(ad.time, c.taken ? 1700000000u : 5u);
        EXPECT_EQ(ad.hardwareRevision, c.taken ? c.revision : 0x99);
    }
}

TEST(HalfFloat, EncodesEdgeCasesWithRoundingToNearestEven) {
    struct Case {
        float value;
        uint16_t half;
    };
    // After the plain values and the smallest float: the largest finite, just below and at the boundary that rounds to
    // infinity; the smallest normal, the smallest and largest subnormal; ties to even at 1.5, 2.5 and 0.5 units and
    // just above half a unit; ties to even at 1 + 2^-11 (down) and 1 + 3 * 2^-11 (up), and just above the first.
    Case const cases[] = {
        {0.0f, 0x0000},        {-0.0f, 0x8000},           {1.0f, 0x3C00},       {-2.0f, 0xC000},
        {0.1f, 0x2E66},        {1.0f / 3, 0x3555},        {kInfinity, 0x7C00},  {-kInfinity, 0xFC00},
        {1e6f, 0x7C00},        {-1e6f, 0xFC00},           {1e-8f, 0x0000},      {0x1p-149f, 0},
        {65504.0f, 0x7BFF},    {65519.0f, 0x7BFF},        {65520.0f, 0x7C00},   {0x1p-14f, 0x0400},
        {0x1p-24f, 0x0001},    {0x1.ff8p-15f, 0x03FF},    {0x1.8p-24f, 0x0002}, {0x1.4p-23f, 0x0002},
        {0x1p-25f, 0x0000},    {0x1.000002p-25f, 0x0001}, {0x1.002p0f, 0x3C00}, {0x1.006p0f, 0x3C02},
        {0x1.0021p0f, 0x3C01},
    };
    for (Case const& c : cases) EXPECT_EQ(floatToHalf(c.value), c.half) << std::hexfloat << c.value;
}

TEST(HalfFloat, NotANumberStaysNotANumber) {
    EXPECT_TRUE(std::isnan(halfToFloat(floatToHalf(kNaN))));
    EXPECT_TRUE(std::isnan(halfToFloat(floatToHalf(-kNaN))));
    // A payload only in the bits binary16 drops must not turn into infinity.
    float const lowPayload = std::bit_cast<float>(uint32_t{0x7F800001});
    uint16_t const half = floatToHalf(lowPayload);
    EXPECT_EQ(half & 0x7C00, 0x7C00);
    EXPECT_NE(half & 0x03FF, 0);
}

TEST(HalfFloat, DecodesEdgeCases) {
    struct Case {
        uint16_t half;
        float value;
    };
    Case const cases[] = {
        {0x0000, 0.0f},      {0x3C00, 1.0f},       {0xC000, -2.0f},        {0x7BFF, 65504.0f},
        {0x0400, 0x1p-14f},  {0x0001, 0x1p-24f},   {0x03FF, 0x1.ff8p-15f}, {0x8001, -0x1p-24f},
        {0x7C00, kInfinity}, {0xFC00, -kInfinity}, {0x3555, 0x1.554p-2f},
    };
    for (Case const& c : cases) EXPECT_TRUE(sameBits(halfToFloat(c.half), c.value)) << std::hex << c.half;
    EXPECT_TRUE(std::signbit(halfToFloat(0x8000)));
    EXPECT_EQ(halfToFloat(0x8000), 0.0f);
    for (uint16_t nan : {0x7C01, 0x7E00, 0xFE00, 0x7FFF}) EXPECT_TRUE(std::isnan(halfToFloat(nan))) << std::hex << nan;
}

TEST(HalfFloat, EveryHalfValueSurvivesTheTripThroughFloat) {
    for (uint32_t bits = 0; bits <= 0xFFFF; ++bits) {
        auto const half = static_cast<uint16_t>(bits);
        float const value = halfToFloat(half);
        if (std::isnan(value)) {
            EXPECT_EQ(floatToHalf(value) & 0x7C00, 0x7C00);
            EXPECT_NE(floatToHalf(value) & 0x03FF, 0);
            continue;
        }
        ASSERT_EQ(floatToHalf(value), half) << std::hex << bits;
    }
}

TEST(HalfFloat, ValuesBetweenNeighboursRoundToTheNearer) {
    // Between two adjacent finite halves a and b, a float a quarter of the
    // way goes to a and three quarters of the way goes to b.
    for (uint32_t bits = 0; bits < 0x7BFF; bits += 7) {
        float const a = halfToFloat(static_cast<uint16_t>(bits));
        float const b = halfToFloat(static_cast<uint16_t>(bits + 1));
        EXPECT_EQ(floatToHalf(a + (b - a) / 4), bits) << std::hex << bits;
        EXPECT_EQ(floatToHalf(a + (b - a) * 3 / 4), bits + 1) << std::hex << bits;
        EXPECT_EQ(floatToHalf(-(a + (b - a) * 3 / 4)), 0x8000 | (bits + 1)) << std::hex << bits;
    }
}
