// The device's side of a plain session: golden frames, requests refused with a
// code, answer splitting and the injected faults.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "sim_test_host.h"

namespace {

using namespace simtest;

Bytes f32(float value) {
    Bytes out;
    ByteWriter(out).write<float>(value);
    return out;
}

TEST(SimSession, LanInfoRequestAndAnswerAreGoldenFrames) {
    Bytes const request{0x00, 0x02, 0x01, 0x02, 0x01, 0x01, 0x01, 0x01, 0x00};
    ASSERT_EQ(lineCode(header(0x01, 1, {})), request);
    Bench lan(0x10);
    lan.host.sendRaw(request);
    ASSERT_EQ(lan.host.received().size(), 1u);

    Bytes expected{0x00, 0x00, 0x01, 0x00, 49,   0x00,               // success, sequence 1, 49 bytes
                   0x32, 0x01, 0x10,                                 // firmware 1.32, revision 0x10
                   0xA1, 0x86, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};  // serial 100001
    for (char ch : std::string("Zelmor-K")) expected.push_back(static_cast<uint8_t>(ch));
    expected.resize(expected.size() + 24, 0);
    for (uint8_t b : {0x00, 0x01, 127, 0, 0, 1}) expected.push_back(b);  // unlocked, relay on, 127.0.0.1
    EXPECT_EQ(lan.host.received()[0], lineCode(expected));
}

// Unknown commands, command zero included, are invalid requests (the lock
// tests sweep the rest of 0..0xFF); payloads of the wrong length or with a
// value out of range are invalid parameters; steps out of order fail: an
// unlock without a challenge, a firmware block or finish without a start.
TEST(SimSession, RequestsOutOfRangeAnswerOnlyACode) {
    Bytes const zeroInside{'a', 0, 'b'};
    std::vector<Step> const script = {
        {0x0000, Bytes(), 1},     {0xFFFF, Bytes(), 1},      {0x01, Bytes(1, 1), 2},   {0x04, Bytes(4, 1), 2},
        {0x14, Bytes(), 2},       {0x14, Bytes(2, 1), 2},    {0x14, Bytes(1, 2), 2},   {0x21, Bytes(103, 1), 2},
        {0x21, Bytes(105, 1), 2}, {0x25, Bytes(), 2},        {0x25, zeroInside, 2},    {0x27, Bytes(3, 1), 2},
        {0x27, f32(0.0f), 2},     {0x27, f32(NAN), 2},       {0x27, f32(2000.5f), 2},  {0x27, f32(-2001.0f), 2},
        {0x27, f32(-2000.0f), 0}, {0x28, Bytes(5, 1), 2},    {0x31, Bytes(79, 1), 2},  {0x31, Bytes(80, 1), 3},
        {0x33, Bytes(81, 1), 2},  {0x40, Bytes(), 2},        {0x40, Bytes(2, 1), 2},   {0x40, Bytes(1, 2), 2},
        {0x44, Bytes(11, 1), 2},  {0x51, Bytes(), 2},        {0x51, Bytes(25, 1), 2},  {0x52, Bytes(24, 1), 2},
        {0x53, Bytes(8, 1), 2},   {0x61, Bytes(99, 1), 2},   {0x71, Bytes(101, 1), 2}, {0x72, Bytes(), 2},
        {0xDB, Bytes(4, 1), 2},   {0xF0, Bytes(2, 1), 2},    {0xF0, u32(19), 2},       {0xF0, u32((4u << 20) + 1), 2},
        {0xF1, Bytes(), 2},       {0xF1, Bytes(4097, 1), 2}, {0xF1, Bytes(3, 1), 3},   {0xF2, Bytes(), 3},
        {0xF2, Bytes(1, 1), 2},   {0xFB, Bytes(1, 1), 2}};
    Bench b;
    runScript(b.host, script);
}

// Every frame but the last of an answer is a continuation; an answer of
// exactly three frames' worth has no empty frame after it.
TEST(SimSession, LongAnswersAreSplitIntoContinuationFrames) {
    sim::SimulatedDeviceConfig config = model(0x41);
    config.maxFramePayload = 64;
    Bench b(config);
    EXPECT_EQ(b.host.call(0x51, Bytes(8 * 24, 0x11)).code, 0);
    std::vector<Frame> const frames = b.host.exchange(0x50);
    ASSERT_EQ(frames.size(), 3u);
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i].code, i < 2 ? sim::kContinuationCode : 0);
        EXPECT_EQ(frames[i].payload.size(), 64u);
    }
}

TEST(SimFaults, SilentCommandsAreNeitherRunNorAnsweredAndDroppedAnswersAreNotSent) {
    Bench b;
    b.device.faults().configure({.silentCommands = 2});
    EXPECT_TRUE(b.host.exchange(0x14, {0}).empty());
    EXPECT_TRUE(b.host.exchange(0x14, {0}).empty());
    EXPECT_TRUE(b.device.snapshot().relayOn);
    EXPECT_EQ(b.host.call(0x14, {0}).code, 0);
    EXPECT_FALSE(b.device.snapshot().relayOn);
    // A dropped answer is one whose command ran.
    b.device.faults().configure({.dropFraction = 1.0});
    EXPECT_TRUE(b.host.exchange(0x14, {1}).empty());
    EXPECT_TRUE(b.device.snapshot().relayOn);
}

TEST(SimFaults, CorruptedAnswerDiffersInOneBodyByte) {
    Bench b;
    b.device.faults().configure({.corruptFraction = 1.0});
    for (uint16_t sequence = 1; sequence <= 20; ++sequence) {
        b.host.sendRaw(lineCode(header(0x00, sequence, {})));
        ASSERT_EQ(b.host.received().size(), 1u);
        Bytes const& got = b.host.received()[0];
        Bytes const clean = lineCode(header(1, sequence, {}));
        ASSERT_EQ(got.size(), clean.size());
        EXPECT_EQ(got.front(), 0);
        EXPECT_EQ(got.back(), 0);
        size_t differing = 0;
        for (size_t j = 1; j + 1 < got.size(); ++j) {
            EXPECT_NE(got[j], 0);
            differing += got[j] != clean[j];
        }
        EXPECT_EQ(differing, 1u);
    }
}

// The battery model over simulated days: plausible values, cycling charge,
// meters that agree with the current, a prefilled history like a stepped one.
// Every reading keeps power = voltage x current, and a runtime only while
// discharging; over the days the charge cycles within the chemistry's
// voltages and the meters follow the integral of current and power.
TEST(SimBattery, DaysArePlausibleAndMetersMatchTheIntegralOfCurrent) {
    struct Case {
        uint8_t revision;
        sim::BatteryChemistry chemistry;
        int64_t days;
    };
    for (Case const c :
         {Case{0x41, sim::BatteryChemistry::LiFePO4, 7}, Case{0x31, sim::BatteryChemistry::LeadAcid, 3}}) {
        SCOPED_TRACE(int{c.revision});
        sim::SimulatedDeviceConfig config = model(c.revision);
        config.chemistry = c.chemistry;
        Bench b(config);
        std::vector<float> voltage1, voltage2, temperature;
        std::vector<int> charge;
        double chargeAs = 0, energyWs = 0, throughputAs = 0, throughputWs = 0;
        sim::MonitorReadings const first = b.device.readings();
        sim::MonitorReadings r = first;
        for (int64_t t = 0; t < c.days * 86400; t += 60) {
            voltage1.push_back(r.voltage1);
            voltage2.push_back(r.voltage2);
            temperature.push_back(r.temperature);
            charge.push_back(r.stateOfCharge);
            chargeAs += r.current * 60.0;
            energyWs += r.power * 60.0;
            throughputAs += std::fabs(r.current) * 60.0;
            throughputWs += std::fabs(r.power) * 60.0;
            ASSERT_NEAR(r.power, r.voltage1 * r.current, 1e-3 + 1e-5 * std::fabs(r.power));
            if (r.current > 0.1f) {
                ASSERT_EQ(r.runtime, sim::kRuntimeNotAvailable);
                ASSERT_TRUE(r.status & sim::kStatusCharging);
            }
            if (r.current < -0.1f) {
                ASSERT_LE(r.runtime, sim::kRuntimeMax);
            }
            b.advance(60);
            r = b.device.readings();
        }
        auto const [low1, high1] = std::minmax_element(voltage1.begin(), voltage1.end());
        EXPECT_GE(*low1, 10.5f);
        EXPECT_LE(*high1, 14.8f);
        EXPECT_GT(*high1 - *low1, 0.3f);
        auto const [lowT, highT] = std::minmax_element(temperature.begin(), temperature.end());
        EXPECT_GE(*lowT, 10.0f);
        EXPECT_LE(*highT, 30.0f);
        auto const [lowCharge, highCharge] = std::minmax_element(charge.begin(), charge.end());
        EXPECT_GE(*highCharge - *lowCharge, 10);
        EXPECT_LE(*highCharge, 100);
        if (c.revision == 0x31) {
            EXPECT_TRUE(std::isnan(r.voltage2));
            EXPECT_FALSE(r.status & sim::kStatusSecondVoltage);
        } else {
            auto const [low2, high2] = std::minmax_element(voltage2.begin(), voltage2.end());
            EXPECT_GE(*low2, 12.4f);
            EXPECT_LE(*high2, 13.9f);
        }
        EXPECT_NEAR(static_cast<double>(r.coulombMeter - first.coulombMeter), chargeAs / 3.6,
                    0.02 * throughputAs / 3.6);
        EXPECT_NEAR(static_cast<double>(r.energyMeter - first.energyMeter), energyWs / 3.6, 0.02 * throughputWs / 3.6);
        EXPECT_GT(throughputAs / 3.6, 20'000.0 * static_cast<double>(c.days));  // more than 20 Ah a day
    }
}

TEST(SimBattery, PrefillAgreesWithSecondBySecondRun) {
    Bench stepped(model(0x41), kStartTime - 2 * 86400);
    for (int64_t t = 0; t < 2 * 86400; t += 300) {
        stepped.advance(300);
        stepped.device.readings();
    }
    sim::SimulatedDeviceConfig config = model(0x41);
    config.historyDays = 2;
    Bench prefilled(config);
    sim::MonitorReadings const a = stepped.device.readings();
    sim::MonitorReadings const b = prefilled.device.readings();
    EXPECT_NEAR(a.stateOfCharge, b.stateOfCharge, 3);
    EXPECT_NEAR(a.voltage1, b.voltage1, 0.1);
    EXPECT_NEAR(static_cast<double>(a.coulombMeter), static_cast<double>(b.coulombMeter), 5000);
    EXPECT_EQ(a.temperature, b.temperature);
}

}  // namespace
