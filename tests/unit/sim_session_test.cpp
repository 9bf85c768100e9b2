// The device's side of a plain session: golden frames, requests refused with a
// code, answer splitting and the injected faults.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

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
    EXPECT_EQ(b.host.call(0x55).code, 0);
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

// The Nth request of a command fails whichever connection sends it; other
// commands neither fail nor count.
TEST(SimFaults, FailedCommandsAnswerThreeWithoutRunning) {
    Bench b;
    TestHost other(b.device);
    b.device.faults().configure({.failCommand = sim::CommandFailure{0x14, 2}});
    std::tuple<TestHost*, uint8_t, uint16_t> const steps[] = {
        {&b.host, 0, 0}, {&other, 1, 3}, {&b.host, 1, 0}, {&other, 0, 0}};
    for (auto const& [host, relay, answer] : steps) {
        EXPECT_EQ(host->call(0x12).code, 0);
        EXPECT_EQ(host->call(0x14, {relay}).code, answer);
        EXPECT_EQ(b.device.snapshot().relayOn, answer == 0 && relay == 1);
    }
    b.device.faults().configure({.failCommand = sim::CommandFailure{0x14, 0}});
    for (int i = 0; i < 2; ++i) EXPECT_EQ(b.host.call(0x14, {1}).code, 3);
    EXPECT_FALSE(b.device.snapshot().relayOn);
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

}  // namespace
