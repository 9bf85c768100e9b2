#include "log_record.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kTwoVoltageModel = 0x41;
constexpr uint8_t kOneVoltageModel = 0x31;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

LogRecord sample() {
    LogRecord r;
    r.time = 1700000000;
    r.voltage1 = 12.5f;
    r.voltage2 = 13.0f;
    r.current = -3.25f;
    r.power = -40.63f;
    r.temperature = 21.5f;
    r.stateOfCharge = 87;
    r.powerStatus = 2;
    return r;
}

Bytes encode(uint8_t revision, LogRecord const& r) {
    Bytes out;
    encodeLogRecord(revision, r, out);
    return out;
}

std::vector<LogRecord> decode(uint8_t revision, Bytes const& bytes) {
    std::vector<LogRecord> out;
    decodeLogRecords(revision, bytes.data(), bytes.size(), out);
    return out;
}

TEST(LogRecordTest, RecordSizeFollowsTheModelFamily) {
    struct Case {
        uint8_t revision;
        size_t size;
    };
    Case const cases[] = {{0x00, 18}, {0x10, 18}, {0x1F, 18}, {0x21, 18}, {0x2F, 18}, {0x30, 16},
                          {0x31, 16}, {0x3F, 16}, {0x40, 18}, {0x4A, 18}, {0x50, 18}, {0xF0, 18}};
    for (auto const& c : cases) EXPECT_EQ(logRecordSize(c.revision), c.size) << int(c.revision);
}

TEST(LogRecordTest, EncodesRecordsByteForByte) {
    Bytes const twoVoltages = {
        0x00, 0xF1, 0x53, 0x65,  // time 1700000000
        0x6A, 0x18,              // voltage 1: 6250 x 2 mV
        0x64, 0x19,              // voltage 2: 6500 x 2 mV, absent on one-voltage models
        0x4E, 0xF3, 0xFF,        // current: -3250 mA
        0x21, 0xF0, 0xFF,        // power: -4063 x 10 mW
        0x66, 0x08,              // temperature: 2150 x 0.01 °C
        0x57,                    // state of charge 87
        0x02,                    // power status
    };
    for (uint8_t revision : {kTwoVoltageModel, uint8_t{0x12}, uint8_t{0x23}})
        EXPECT_EQ(encode(revision, sample()), twoVoltages) << int(revision);
    Bytes oneVoltage = twoVoltages;
    oneVoltage.erase(oneVoltage.begin() + 6, oneVoltage.begin() + 8);
    EXPECT_EQ(encode(kOneVoltageModel, sample()), oneVoltage);
}

TEST(LogRecordTest, DecodesBytesWrittenOut) {
    Bytes const bytes = {
        0x10, 0x32, 0x54, 0x76,  // time 0x76543210
        0xFE, 0xFF,              // voltage 1: 65534 -> 131.068 V
        0x01, 0x00,              // voltage 2: 2 mV
        0xFF, 0xFF, 0xFF,        // current -1 mA
        0x01, 0x00, 0x80,        // power -8388607 x 10 mW
        0x01, 0x80,              // temperature -327.67 °C
        0xC8,                    // state of charge 200: unknown, kept
        0xFE,                    // power status
    };
    auto const records = decode(kTwoVoltageModel, bytes);
    ASSERT_EQ(records.size(), 1u);
    LogRecord const& r = records[0];
    EXPECT_EQ(r.time, 0x76543210u);
    EXPECT_FLOAT_EQ(r.voltage1, 131.068f);
    EXPECT_FLOAT_EQ(r.voltage2, 0.002f);
    EXPECT_FLOAT_EQ(r.current, -0.001f);
    EXPECT_FLOAT_EQ(r.power, -83886.07f);
    EXPECT_FLOAT_EQ(r.temperature, -327.67f);
    EXPECT_EQ(r.stateOfCharge, 200);
    EXPECT_EQ(r.powerStatus, 0xFE);
}

TEST(LogRecordTest, UnavailableValuesUseTheirCodes) {
    LogRecord r = sample();
    r.voltage1 = r.voltage2 = r.current = r.power = r.temperature = kNaN;
    r.stateOfCharge = 255;
    Bytes const expected = {0x00, 0xF1, 0x53, 0x65, 0xFF, 0xFF, 0xFF, 0xFF, 0x00,
                            0x00, 0x80, 0x00, 0x00, 0x80, 0x00, 0x80, 0xFF, 0x02};
    Bytes const bytes = encode(kTwoVoltageModel, r);
    EXPECT_EQ(bytes, expected);
    auto const back = decode(kTwoVoltageModel, bytes);
    ASSERT_EQ(back.size(), 1u);
    for (float value : {back[0].voltage1, back[0].voltage2, back[0].current, back[0].power, back[0].temperature})
        EXPECT_TRUE(std::isnan(value));
    EXPECT_EQ(back[0].stateOfCharge, 255);
}

TEST(LogRecordTest, OutOfRangeValuesSaturate) {
    // Voltage 1, current, power and temperature of a one-voltage record.
    Bytes const highest = {0xFE, 0xFF, 0xFF, 0xFF, 0x7F, 0xFF, 0xFF, 0x7F, 0xFF, 0x7F};
    Bytes const lowest = {0x00, 0x00, 0x01, 0x00, 0x80, 0x01, 0x00, 0x80, 0x01, 0x80};
    struct Case {
        float voltage, current, power, temperature;
        Bytes const& fields;
    };
    Case const cases[] = {
        {131.068f, 8388.607f, 83886.07f, 327.67f, highest},
        {200.0f, 1e6f, 1e7f, 400.0f, highest},
        {kInf, kInf, kInf, kInf, highest},
        {-0.5f, -8388.607f, -83886.07f, -327.67f, lowest},
        {-1e9f, -1e6f, -1e7f, -400.0f, lowest},
        {-kInf, -kInf, -kInf, -kInf, lowest},
    };
    for (auto const& c : cases) {
        LogRecord r = sample();
        r.voltage1 = c.voltage;
        r.current = c.current;
        r.power = c.power;
        r.temperature = c.temperature;
        Bytes const bytes = encode(kOneVoltageModel, r);
        ASSERT_EQ(bytes.size(), 16u);
        EXPECT_EQ(Bytes(bytes.begin() + 4, bytes.begin() + 14), c.fields) << c.voltage << " V " << c.current << " A";
    }
}

TEST(LogRecordTest, RoundsToTheNearestUnitAndHalvesAwayFromZero) {
    struct Case {
        float LogRecord::*field;
        size_t offset;
        float value;
        Bytes bytes;
    };
    constexpr auto current = &LogRecord::current;
    constexpr auto temperature = &LogRecord::temperature;
    Case const cases[] = {
        {current, 8, 0.0004f, {0x00, 0x00, 0x00}},
        {current, 8, 0.0006f, {0x01, 0x00, 0x00}},
        {current, 8, -0.0004f, {0x00, 0x00, 0x00}},
        {current, 8, -0.0006f, {0xFF, 0xFF, 0xFF}},
        {current, 8, 1.2344f, {0xD2, 0x04, 0x00}},
        {current, 8, 1.2346f, {0xD3, 0x04, 0x00}},
        {current, 8, 0.0f, {0x00, 0x00, 0x00}},
        {current, 8, -0.0f, {0x00, 0x00, 0x00}},
        {current, 8, -1.0f, {0x18, 0xFC, 0xFF}},
        // Exact halves in binary, so the tie is really a tie.
        {temperature, 14, 0.125f, {0x0D, 0x00}},
        {temperature, 14, -0.125f, {0xF3, 0xFF}},
        {temperature, 14, 0.375f, {0x26, 0x00}},
        {temperature, 14, -0.375f, {0xDA, 0xFF}},
    };
    for (auto const& c : cases) {
        LogRecord r = sample();
        r.*c.field = c.value;
        Bytes const bytes = encode(kTwoVoltageModel, r);
        auto const at = bytes.begin() + static_cast<std::ptrdiff_t>(c.offset);
        EXPECT_EQ(Bytes(at, at + static_cast<std::ptrdiff_t>(c.bytes.size())), c.bytes) << c.value;
    }
}

TEST(LogRecordTest, RoundTripStaysWithinHalfAUnit) {
    float const voltages[] = {0.0f, 0.001f, 3.3f, 12.789f, 27.6543f, 48.0f, 131.067f};
    float const currents[] = {0.0f, 0.0004f, -0.0004f, 1.5f, -250.123f, 8388.6f, -8388.6f};
    float const powers[] = {0.0f, 0.004f, -0.004f, 12.34f, -4000.5f, 83886.0f, -83886.0f};
    float const temperatures[] = {0.0f, -0.004f, 25.0f, -40.015f, 85.125f, 327.66f, -327.66f};
    for (uint8_t revision : {kTwoVoltageModel, kOneVoltageModel}) {
        Bytes bytes;
        std::vector<LogRecord> originals;
        for (size_t i = 0; i < std::size(voltages); ++i) {
            LogRecord r;
            r.time = static_cast<uint32_t>(i);
            r.voltage1 = voltages[i];
            r.voltage2 = voltages[std::size(voltages) - 1 - i];
            r.current = currents[i];
            r.power = powers[i];
            r.temperature = temperatures[i];
            r.stateOfCharge = static_cast<uint8_t>(i * 40);
            r.powerStatus = static_cast<uint8_t>(i);
            originals.push_back(r);
            encodeLogRecord(revision, r, bytes);
        }
        auto const back = decode(revision, bytes);
        ASSERT_EQ(back.size(), originals.size());
        for (size_t i = 0; i < back.size(); ++i) {
            SCOPED_TRACE(testing::Message() << "revision " << int(revision) << " record " << i);
            auto const& a = originals[i];
            auto const& b = back[i];
            // Half a unit, plus the float rounding of the larger magnitudes.
            EXPECT_NEAR(b.voltage1, a.voltage1, 0.001 + 1e-5);
            EXPECT_NEAR(b.current, a.current, 0.0005 + 1e-3);
            EXPECT_NEAR(b.power, a.power, 0.005 + 1e-2);
            EXPECT_NEAR(b.temperature, a.temperature, 0.005 + 1e-4);
            if (revision == kTwoVoltageModel)
                EXPECT_NEAR(b.voltage2, a.voltage2, 0.001 + 1e-5);
            else
                EXPECT_TRUE(std::isnan(b.voltage2));
            EXPECT_EQ(b.time, a.time);
            EXPECT_EQ(b.stateOfCharge, a.stateOfCharge);
            EXPECT_EQ(b.powerStatus, a.powerStatus);
        }
    }
}

TEST(LogRecordTest, ReencodingDecodedRecordsGivesTheSameBytes) {
    // Extremes of every field, where the float holding a decoded value is coarsest.
    // The last record holds -8388603 mA and -8388606 x 10 mW, which a decoder that
    // multiplied in float would hand back one count off.
    Bytes const bytes = {
        0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00, 0xFF, 0xFF, 0x7F, 0xFF, 0xFF, 0x7F, 0xFF, 0x7F, 0x00, 0xFF,
        0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0xFF, 0xFF, 0x01, 0x00, 0x80, 0x01, 0x00, 0x80, 0x01, 0x80, 0x64, 0x00,
        0x01, 0x00, 0x00, 0x00, 0x39, 0x30, 0xFE, 0xFF, 0xFE, 0xFF, 0x7F, 0xFD, 0xFF, 0x7F, 0xFE, 0x7F, 0x65, 0x80,
        0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x00, 0x80, 0x02, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00,
    };
    auto const records = decode(kTwoVoltageModel, bytes);
    ASSERT_EQ(records.size(), 4u);
    Bytes again;
    for (auto const& r : records) encodeLogRecord(kTwoVoltageModel, r, again);
    EXPECT_EQ(again, bytes);
}

TEST(LogRecordTest, DecodingAppendsWholeRecordsOnly) {
    std::vector<LogRecord> out(1);
    decodeLogRecords(kTwoVoltageModel, nullptr, 0, out);
    EXPECT_EQ(out.size(), 1u);

    for (uint8_t revision : {kTwoVoltageModel, kOneVoltageModel}) {
        Bytes whole;
        encodeLogRecord(revision, sample(), whole);
        LogRecord second = sample();
        second.time += 1;
        encodeLogRecord(revision, second, whole);
        size_t const size = logRecordSize(revision);
        ASSERT_EQ(whole.size(), 2 * size);
        // A file still being written ends in part of a record.
        for (size_t length = 1; length < 2 * size; ++length) {
            std::vector<LogRecord> records(out);
            decodeLogRecords(revision, whole.data(), length, records);
            ASSERT_EQ(records.size(), length < size ? 1u : 2u) << "revision " << int(revision) << " length " << length;
            EXPECT_EQ(records.back().time, length < size ? 0u : 1700000000u);
        }
        std::vector<LogRecord> records(out);
        decodeLogRecords(revision, whole.data(), whole.size(), records);
        ASSERT_EQ(records.size(), 3u);
        EXPECT_EQ(records[2].time, 1700000001u);
    }
}

TEST(LogRecordTest, NegativeCurrentAndPowerKeepTheirSign) {
    struct Case {
        Bytes field;
        float current;
        float power;
    };
    Case const cases[] = {
        {{0xFF, 0xFF, 0xFF}, -0.001f, -0.01f},        {{0x00, 0x00, 0xFF}, -65.536f, -655.36f},
        {{0x01, 0x00, 0x80}, -8388.607f, -83886.07f}, {{0xFF, 0xFF, 0x7F}, 8388.607f, 83886.07f},
        {{0x00, 0x00, 0x01}, 65.536f, 655.36f},
    };
    for (auto const& c : cases) {
        Bytes bytes = {0, 0, 0, 0, 0, 0};
        bytes.insert(bytes.end(), c.field.begin(), c.field.end());
        bytes.insert(bytes.end(), c.field.begin(), c.field.end());
        bytes.insert(bytes.end(), {0, 0, 0, 0});
        auto const records = decode(kOneVoltageModel, bytes);
        ASSERT_EQ(records.size(), 1u);
        EXPECT_FLOAT_EQ(records[0].current, c.current);
        EXPECT_FLOAT_EQ(records[0].power, c.power);
    }
}

}  // namespace
