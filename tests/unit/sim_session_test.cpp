// Framing of plain sessions: golden frames, answer splitting, dropped frames
// and the injected faults.
#include <gtest/gtest.h>

#include <thread>

#include "sim_test_host.h"

namespace {

using namespace simtest;

TEST(SimSession, RequestForInfoEncodesAsGoldenBytes) {
    EXPECT_EQ(lineCode(header(0x01, 1, {})), (Bytes{0x00, 0x02, 0x01, 0x02, 0x01, 0x01, 0x01, 0x01, 0x00}));
}

TEST(SimSession, LanInfoAnswerIsGoldenFrame) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x10, clock, 0x0132));
    std::vector<Bytes> sent;
    auto session = device.openSession(
        sim::SessionMode::Plain, [&](uint8_t const* data, size_t length) { sent.emplace_back(data, data + length); });
    Bytes const request{0x00, 0x02, 0x01, 0x02, 0x01, 0x01, 0x01, 0x01, 0x00};
    session->receive(request.data(), request.size());
    ASSERT_EQ(sent.size(), 1u);

    Bytes expected{0x00, 0x00, 0x01, 0x00, 49,   0x00,               // success, sequence 1, 49 bytes
                   0x32, 0x01, 0x10,                                 // firmware 1.32, revision 0x10
                   0xA1, 0x86, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};  // serial 100001
    for (char ch : std::string("Zelmor-K")) expected.push_back(static_cast<uint8_t>(ch));
    expected.resize(expected.size() + 24, 0);
    for (uint8_t b : {0x00, 0x01, 127, 0, 0, 1}) expected.push_back(b);  // unlocked, relay on, 127.0.0.1
    ASSERT_EQ(expected.size(), 6u + 49u);
    EXPECT_EQ(sent[0], lineCode(expected));
}

TEST(SimSession, UnknownCommandsAndCommandZeroAnswerInvalidRequest) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    for (uint16_t code : {0x0000, 0x0005, 0x0032, 0x00FF, 0x0100, 0x8000, 0xFFFF}) {
        Answer const a = host.call(code);
        EXPECT_EQ(a.code, 1) << code;
        EXPECT_TRUE(a.payload.empty()) << code;
    }
}

TEST(SimSession, WrongPayloadLengthsAnswerInvalidParameter) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    struct Case {
        uint16_t code;
        size_t length;
    };
    Case const cases[] = {{0x01, 1},  {0x04, 4}, {0x14, 0},  {0x14, 2},  {0x21, 103},  {0x21, 105}, {0x25, 0},
                          {0x25, 33}, {0x27, 3}, {0x28, 5},  {0x31, 79}, {0x33, 81},   {0x40, 0},   {0x40, 2},
                          {0x44, 11}, {0x51, 0}, {0x51, 25}, {0x52, 24}, {0x53, 8},    {0x61, 99},  {0x71, 101},
                          {0x72, 0},  {0xDB, 4}, {0xF0, 2},  {0xF1, 0},  {0xF1, 4097}, {0xF2, 1},   {0xFB, 1}};
    for (Case const& c : cases) EXPECT_EQ(host.call(c.code, Bytes(c.length, 1)).code, 2) << c.code << " " << c.length;
}

TEST(SimSession, LongAnswerIsSplitIntoContinuationFrames) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    host.session().setMaxFramePayload(64);

    auto frames = host.exchange(0x20);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0]->code, sim::kContinuationCode);
    EXPECT_EQ(frames[0]->payload.size(), 64u);
    EXPECT_EQ(frames[1]->code, 0);
    EXPECT_EQ(frames[1]->payload.size(), 40u);
    for (auto const& f : frames) EXPECT_EQ(f->sequence, host.sequence());
    Bytes joined = frames[0]->payload;
    joined.insert(joined.end(), frames[1]->payload.begin(), frames[1]->payload.end());
    sim::ConfigImage const image = sim::defaultConfigImage();
    EXPECT_EQ(joined, Bytes(image.begin(), image.end()));

    // An answer of exactly three frames' worth has no empty frame after it.
    ASSERT_EQ(host.call(0x51, Bytes(8 * 24, 0x11)).code, 0);
    frames = host.exchange(0x50);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0]->code, sim::kContinuationCode);
    EXPECT_EQ(frames[1]->code, sim::kContinuationCode);
    EXPECT_EQ(frames[2]->code, 0);
    for (auto const& f : frames) EXPECT_EQ(f->payload.size(), 64u);

    // Empty answers and errors are single frames.
    frames = host.exchange(0x54);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames[0]->payload.empty());
}

TEST(SimSession, ConfiguredMaxPayloadAppliesToNewSessions) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.maxFramePayload = 30;
    sim::SimulatedDevice device(config);
    TestHost host(device);
    auto const frames = host.exchange(0x01);
    ASSERT_EQ(frames.size(), 3u);  // 82 bytes: 30 + 30 + 22
    EXPECT_EQ(frames[2]->payload.size(), 22u);
    EXPECT_EQ(host.call(0x01).payload.size(), 82u);
}

TEST(SimSession, MalformedFramesAreDropped) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    Bytes const tooShort = lineCode(Bytes{0x01, 0x00, 0x01, 0x00, 0x00});
    Bytes lengthBeyondFrame = header(0x01, 2, {});
    lengthBeyondFrame[4] = 1;
    Bytes const badCobs{0x00, 0x05, 0x01, 0x02, 0x00};
    for (Bytes const& bytes : {tooShort, lineCode(lengthBeyondFrame), badCobs}) {
        host.sendRaw(bytes);
        EXPECT_TRUE(host.received().empty());
    }

    // A frame split across calls and extra bytes after the payload are fine.
    Bytes request = lineCode(concat({header(0x01, 7, {}), Bytes{0xEE, 0xEE}}));
    host.sendRaw(Bytes(request.begin(), request.begin() + 4));
    EXPECT_TRUE(host.received().empty());
    host.sendRaw(Bytes(request.begin() + 4, request.end()));
    auto answer = host.received();
    ASSERT_EQ(answer.size(), 1u);
    auto const frame = parsePlain(cobsBody(answer[0]));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->code, 0);
    EXPECT_EQ(frame->sequence, 7);
}

TEST(SimFaults, SilentCommandsAreNeitherRunNorAnswered) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    device.faults().configure({.silentCommands = 2});
    EXPECT_TRUE(host.exchange(0x14, {0}).empty());
    EXPECT_TRUE(host.exchange(0x14, {0}).empty());
    EXPECT_TRUE(device.snapshot().relayOn);
    EXPECT_EQ(device.faults().settings().silentCommands, 0u);
    EXPECT_EQ(host.call(0x14, {0}).code, 0);
    EXPECT_FALSE(device.snapshot().relayOn);
}

TEST(SimFaults, DroppedAnswersAreNotSent) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    device.faults().configure({.dropFraction = 1.0});
    EXPECT_TRUE(host.exchange(0x01).empty());
    device.faults().configure({.dropFraction = 0.0});
    EXPECT_EQ(host.exchange(0x01).size(), 1u);
}

TEST(SimFaults, CorruptedAnswerDiffersInOneBodyByte) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    device.faults().configure({.corruptFraction = 1.0});
    for (uint16_t sequence = 1; sequence <= 20; ++sequence) {
        host.sendRaw(host.encode(0x00, sequence, {}));
        ASSERT_EQ(host.received().size(), 1u);
        Bytes const& got = host.received()[0];
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

TEST(SimFaults, SessionClosesAfterByteBudget) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    device.faults().configure({.closeAfterBytes = 20});
    host.sendRaw(host.encode(0x01, 1, {}));
    ASSERT_EQ(host.received().size(), 1u);
    EXPECT_EQ(host.received()[0].size(), 20u);
    EXPECT_TRUE(host.session().closed());
    EXPECT_TRUE(host.exchange(0x01).empty());
}

TEST(SimSession, SendMayFeedTheSessionAgain) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    std::vector<Frame> answers;
    std::unique_ptr<sim::DeviceSession> session;
    session = device.openSession(sim::SessionMode::Plain, [&](uint8_t const* data, size_t length) {
        auto const frame = parsePlain(cobsBody(Bytes(data, data + length)));
        ASSERT_TRUE(frame);
        answers.push_back(*frame);
        if (frame->sequence < 5) {
            Bytes const next = lineCode(header(0x01, static_cast<uint16_t>(frame->sequence + 1), {}));
            session->receive(next.data(), next.size());
        }
    });
    Bytes const first = lineCode(header(0x01, 1, {}));
    session->receive(first.data(), first.size());
    ASSERT_EQ(answers.size(), 5u);
    for (size_t i = 0; i < answers.size(); ++i) EXPECT_EQ(answers[i].sequence, i + 1);
}

TEST(SimSession, SessionsOnSeveralThreads) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    constexpr int kThreads = 4;
    constexpr int kRequests = 200;
    std::vector<size_t> answered(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            TestHost host(device);
            for (int i = 0; i < kRequests; ++i) {
                Answer const a =
                    host.call(i % 2 ? 0x04 : 0x14, i % 2 ? Bytes{} : Bytes{static_cast<uint8_t>(i % 4 == 0)});
                answered[t] += a.code == 0;
                if (t == 0) clock.advance(1);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (size_t count : answered) EXPECT_EQ(count, static_cast<size_t>(kRequests));
}

}  // namespace
