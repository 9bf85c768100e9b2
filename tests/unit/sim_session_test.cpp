// Framing of sessions: golden frames, answer splitting, dropped frames and the
// injected faults; the encrypted hub session's hello, chained CBC in both
// directions, padding and CRC.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "sim_test_host.h"

namespace {

using namespace simtest;

struct SimSession : testing::Test {
    ManualClock clock;
    sim::SimulatedDevice device{configFor(0x41, clock)};
    TestHost host{device};
    std::vector<Bytes> sent;

    /// A session opened by hand; what the device sends goes to `sent`.
    std::unique_ptr<sim::DeviceSession> rawSession(sim::SimulatedDevice& on, sim::SessionMode mode) {
        return on.openSession(mode, [this](uint8_t const* d, size_t n) { sent.emplace_back(d, d + n); });
    }
};
using SimFaults = SimSession;
using SimHub = SimSession;

TEST_F(SimSession, LanInfoRequestAndAnswerAreGoldenFrames) {
    Bytes const request{0x00, 0x02, 0x01, 0x02, 0x01, 0x01, 0x01, 0x01, 0x00};
    ASSERT_EQ(lineCode(header(0x01, 1, {})), request);
    sim::SimulatedDevice lan(configFor(0x10, clock, 0x0132));
    auto session = rawSession(lan, sim::SessionMode::Plain);
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

TEST_F(SimSession, BadRequestsAnswerOnlyAnErrorCode) {
    struct Case {
        uint16_t code;
        size_t length;
        uint16_t answer;
    };
    // Unknown commands, command zero included, are invalid requests (the lock
    // tests sweep the rest of 0..0xFF); wrong payload lengths are invalid parameters.
    Case const cases[] = {{0x0000, 0, 1}, {0x0100, 0, 1}, {0x8000, 0, 1}, {0xFFFF, 0, 1}, {0x01, 1, 2}, {0x04, 4, 2},
                          {0x14, 0, 2},   {0x14, 2, 2},   {0x21, 103, 2}, {0x21, 105, 2}, {0x25, 0, 2}, {0x25, 33, 2},
                          {0x27, 3, 2},   {0x28, 5, 2},   {0x31, 79, 2},  {0x33, 81, 2},  {0x40, 0, 2}, {0x40, 2, 2},
                          {0x44, 11, 2},  {0x51, 0, 2},   {0x51, 25, 2},  {0x52, 24, 2},  {0x53, 8, 2}, {0x61, 99, 2},
                          {0x71, 101, 2}, {0x72, 0, 2},   {0xDB, 4, 2},   {0xF0, 2, 2},   {0xF1, 0, 2}, {0xF1, 4097, 2},
                          {0xF2, 1, 2},   {0xFB, 1, 2}};
    for (Case const& c : cases) {
        Answer const a = host.call(c.code, Bytes(c.length, 1));
        EXPECT_EQ(a.code, c.answer) << c.code << " " << c.length;
        EXPECT_TRUE(a.payload.empty()) << c.code << " " << c.length;
    }
}

TEST_F(SimSession, LongAnswerIsSplitIntoContinuationFrames) {
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.maxFramePayload = 64;
    sim::SimulatedDevice small(config);
    TestHost split(small);
    auto frames = split.exchange(0x20);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0]->code, sim::kContinuationCode);
    EXPECT_EQ(frames[0]->payload.size(), 64u);
    EXPECT_EQ(frames[1]->code, 0);
    EXPECT_EQ(frames[1]->payload.size(), 40u);
    for (auto const& f : frames) EXPECT_EQ(f->sequence, split.sequence());
    Bytes joined = frames[0]->payload;
    joined.insert(joined.end(), frames[1]->payload.begin(), frames[1]->payload.end());
    sim::ConfigImage const image = sim::defaultConfigImage();
    EXPECT_EQ(joined, Bytes(image.begin(), image.end()));

    // An answer of exactly three frames' worth has no empty frame after it.
    ASSERT_EQ(split.call(0x51, Bytes(8 * 24, 0x11)).code, 0);
    frames = split.exchange(0x50);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0]->code, sim::kContinuationCode);
    EXPECT_EQ(frames[1]->code, sim::kContinuationCode);
    EXPECT_EQ(frames[2]->code, 0);
    for (auto const& f : frames) EXPECT_EQ(f->payload.size(), 64u);

    // Empty answers and errors are single frames.
    frames = split.exchange(0x54);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames[0]->payload.empty());
}

TEST_F(SimSession, MalformedFramesAreDropped) {
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

TEST_F(SimFaults, SilentCommandsAreNeitherRunNorAnsweredAndDroppedAnswersAreNotSent) {
    device.faults().configure({.silentCommands = 2});
    EXPECT_TRUE(host.exchange(0x14, {0}).empty());
    EXPECT_TRUE(host.exchange(0x14, {0}).empty());
    EXPECT_TRUE(device.snapshot().relayOn);
    EXPECT_EQ(device.faults().settings().silentCommands, 0u);
    EXPECT_EQ(host.call(0x14, {0}).code, 0);
    EXPECT_FALSE(device.snapshot().relayOn);

    // A dropped answer is one whose command ran.
    device.faults().configure({.dropFraction = 1.0});
    EXPECT_TRUE(host.exchange(0x14, {1}).empty());
    EXPECT_TRUE(device.snapshot().relayOn);
    device.faults().configure({.dropFraction = 0.0});
    EXPECT_EQ(host.exchange(0x01).size(), 1u);
}

TEST_F(SimFaults, CorruptedAnswerDiffersInOneBodyByte) {
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

TEST_F(SimSession, SendMayFeedTheSessionAgain) {
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

TEST_F(SimSession, SessionsOnSeveralThreads) {
    std::atomic<int> answered = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            TestHost own(device);
            for (int i = 0; i < 200; ++i) {
                Bytes const relay{static_cast<uint8_t>(i % 4 == 0)};
                answered += own.call(i % 2 ? 0x04 : 0x14, i % 2 ? Bytes{} : relay).code == 0;
                if (t == 0) clock.advance(1);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(answered, 4 * 200);
}

Bytes helloFor(Zelmor::WifiAccessKey const& key, uint8_t version = 0x02) {
    Bytes hello{version};
    hello.insert(hello.end(), key.keyId.begin(), key.keyId.end());
    return hello;
}

TEST_F(SimHub, ChainsGetInStepAfterThrowawayFrames) {
    TestHost hub(device, sim::SessionMode::Hub);
    EXPECT_FALSE(hub.session().closed());
    // The first frame reaches the device garbled and is dropped: no answer.
    EXPECT_TRUE(hub.exchange(0).empty());
    // The second is answered, but the hub cannot read the answer: the device's
    // first IV is its own secret.
    auto frames = hub.exchange(0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_FALSE(frames[0].has_value());
    frames = hub.exchange(0);
    ASSERT_EQ(frames.size(), 1u);
    ASSERT_TRUE(frames[0].has_value());
    EXPECT_EQ(frames[0]->code, 1);

    Answer const info = hub.call(0x01);
    EXPECT_EQ(info.code, 0);
    EXPECT_EQ(info.payload.size(), 82u);
}

TEST_F(SimHub, EveryFrameIsPaddedToWholeBlocks) {
    TestHost hub(device, sim::SessionMode::Hub);
    hub.synchronise();
    // (n + 23) & ~15 bytes: 82 -> 96, 0 -> 16, 89 -> 112, 53 -> 64.
    struct Case {
        uint16_t code;
        size_t frameSize;
    };
    for (Case const c : {Case{0x01, 96}, Case{0x54, 16}, Case{0x62, 112}, Case{0x04, 64}}) {
        hub.exchange(c.code);
        ASSERT_EQ(hub.received().size(), 1u);
        EXPECT_EQ(cobsBody(hub.received()[0]).size(), c.frameSize) << c.code;
    }
    // Continuation frames are encrypted one by one: 64 + 40 bytes of config.
    hub.session().setMaxFramePayload(64);
    Answer const config = hub.call(0x20);
    EXPECT_EQ(config.code, 0);
    EXPECT_EQ(config.payload.size(), 104u);
    ASSERT_EQ(hub.received().size(), 2u);
    EXPECT_EQ(cobsBody(hub.received()[0]).size(), 80u);
    EXPECT_EQ(cobsBody(hub.received()[1]).size(), 48u);
}

TEST_F(SimHub, DamagedFramesAreDropped) {
    TestHost hub(device, sim::SessionMode::Hub);
    hub.synchronise();
    hub.sendRaw(lineCode(Bytes(20, 0x33)));  // not whole blocks
    EXPECT_TRUE(hub.received().empty());
    EXPECT_EQ(hub.call(0x01).code, 0);

    Bytes ciphertext = cobsBody(hub.encode(0x01, 50, {}));
    ciphertext[3] ^= 0x40;
    hub.sendRaw(lineCode(ciphertext));
    EXPECT_TRUE(hub.received().empty());
    // The device chained on from the damaged block, so the next frame differs
    // in one byte after decryption and fails its CRC as well.
    EXPECT_TRUE(hub.exchange(0x01).empty());
    EXPECT_EQ(hub.call(0x01).code, 0);
}

TEST_F(SimHub, HelloMaySpanSeveralReadsOrShareOneWithAFrame) {
    for (size_t chunk : {1, 5, 16}) {
        TestHost hub(device, sim::SessionMode::Hub, std::nullopt, chunk);
        EXPECT_FALSE(hub.session().closed());
        hub.synchronise();
        EXPECT_EQ(hub.call(0x01).code, 0) << chunk;
    }

    // A hub whose chain also starts from zero is in step from its first frame.
    auto session = rawSession(device, sim::SessionMode::Hub);
    Zelmor::WifiAccessKey const key = device.accessKey();
    Bytes frame = header(0x01, 9, {});
    frame.resize(16, 0);
    writeLe<uint16_t>(frame.data() + 14, crc16Kermit(frame.data(), 14));
    Aes256Cbc cipher;
    cipher.init(key.key);
    cipher.setIv(nullptr);
    cipher.encrypt(frame.data(), frame.size());
    Bytes const bytes = concat({helloFor(key), lineCode(frame)});
    session->receive(bytes.data(), bytes.size());
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(cobsBody(sent[0]).size(), 96u);  // the 82 bytes of the info answer
}

TEST_F(SimHub, WrongHelloClosesTheSession) {
    Zelmor::WifiAccessKey wrongId = device.accessKey();
    wrongId.keyId[15] ^= 1;
    TestHost stranger(device, sim::SessionMode::Hub, wrongId);
    EXPECT_TRUE(stranger.session().closed());
    stranger.synchronise();
    EXPECT_TRUE(stranger.received().empty());

    auto session = rawSession(device, sim::SessionMode::Hub);
    Bytes const hello = helloFor(device.accessKey(), 0x01);
    session->receive(hello.data(), hello.size());
    EXPECT_TRUE(session->closed());
}

}  // namespace
