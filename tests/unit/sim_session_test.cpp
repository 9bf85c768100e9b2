// The device's side of a session: golden frames, requests refused with a code,
// answer splitting, dropped frames and the injected faults; the hub session's
// hello, chained CBC in both directions, padding and CRC.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

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
    ASSERT_EQ(expected.size(), 6u + 49u);
    EXPECT_EQ(lan.host.received()[0], lineCode(expected));
}

TEST(SimSession, RequestsOutOfRangeAnswerOnlyACode) {
    struct Length {
        uint16_t code;
        size_t length;
        uint16_t answer;
    };
    // Unknown commands, command zero included, are invalid requests (the lock
    // tests sweep the rest of 0..0xFF); payloads of the wrong length are
    // invalid parameters.
    Length const lengths[] = {
        {0x0000, 0, 1}, {0x0100, 0, 1},  {0x8000, 0, 1}, {0xFFFF, 0, 1}, {0x01, 1, 2},  {0x04, 4, 2}, {0x14, 0, 2},
        {0x14, 2, 2},   {0x21, 103, 2},  {0x21, 105, 2}, {0x25, 0, 2},   {0x25, 33, 2}, {0x27, 3, 2}, {0x28, 5, 2},
        {0x31, 79, 2},  {0x33, 81, 2},   {0x40, 0, 2},   {0x40, 2, 2},   {0x44, 11, 2}, {0x51, 0, 2}, {0x51, 25, 2},
        {0x52, 24, 2},  {0x53, 8, 2},    {0x61, 99, 2},  {0x71, 101, 2}, {0x72, 0, 2},  {0xDB, 4, 2}, {0xF0, 2, 2},
        {0xF1, 0, 2},   {0xF1, 4097, 2}, {0xF2, 1, 2},   {0xFB, 1, 2}};
    Bench b;
    for (Length const& c : lengths) {
        Answer const a = b.host.call(c.code, Bytes(c.length, 1));
        EXPECT_EQ(a.code, c.answer) << c.code << " " << c.length;
        EXPECT_TRUE(a.payload.empty()) << c.code << " " << c.length;
    }

    // Values out of range, and steps out of order, on fresh devices.
    struct Value {
        uint16_t code;
        Bytes payload;
        uint16_t answer;
        uint8_t revision = 0x41;
    };
    Value const values[] = {{0x14, {2}, 2},
                            {0x25, Bytes(32, 'n'), 0},
                            {0x25, {'a', 0, 'b'}, 2},
                            {0x25, Bytes(8, 'x'), 0, 0x21},
                            {0x25, Bytes(9, 'x'), 2, 0x21},
                            {0x27, f32(-2000.0f), 0},
                            {0x27, f32(-2001.0f), 2},
                            {0x27, f32(2000.5f), 2},
                            {0x27, f32(0.5f), 0},
                            {0x27, f32(0.0f), 2},
                            {0x27, f32(NAN), 2},
                            {0x27, f32(INFINITY), 2},
                            {0x27, f32(-INFINITY), 2},
                            {0x31, Bytes(80, 1), 3},                       // no challenge asked for
                            {0x40, {2}, 2},                                // a page selector is 0 or 1
                            {0x44, concat({u32(0), u32(0), u32(10)}), 2},  // no file 0
                            {0xF0, u32(19), 2},                            // shorter than an image header
                            {0xF0, u32((4u << 20) + 1), 2},
                            {0xF1, {1, 2, 3}, 3},  // no transfer started
                            {0xF2, {}, 3}};
    for (Value const& c : values) {
        SCOPED_TRACE(testing::Message() << "code " << c.code << ", " << hex(c.payload) << ", revision "
                                        << int{c.revision});
        Bench fresh(c.revision);
        Answer const a = fresh.host.call(c.code, c.payload);
        EXPECT_EQ(a.code, c.answer);
        EXPECT_TRUE(a.payload.empty());
    }
}

// Every frame but the last of an answer is a continuation; an answer of
// exactly three frames' worth has no empty frame after it.
TEST(SimSession, LongAnswersAreSplitIntoContinuationFrames) {
    sim::SimulatedDeviceConfig config = model(0x41);
    config.maxFramePayload = 64;
    Bench b(config);
    struct Case {
        uint16_t code;
        Bytes payload;
        std::vector<size_t> frames;
    };
    for (Case const& c :
         {Case{0x20, {}, {64, 40}}, Case{0x51, Bytes(8 * 24, 0x11), {0}}, Case{0x50, {}, {64, 64, 64}}}) {
        SCOPED_TRACE(c.code);
        std::vector<std::optional<Frame>> const frames = b.host.exchange(c.code, c.payload);
        ASSERT_EQ(frames.size(), c.frames.size());
        for (size_t i = 0; i < frames.size(); ++i) {
            EXPECT_EQ(frames[i]->code, i + 1 < frames.size() ? sim::kContinuationCode : 0);
            EXPECT_EQ(frames[i]->sequence, b.host.sequence());
            EXPECT_EQ(frames[i]->payload.size(), c.frames[i]);
        }
    }
}

TEST(SimSession, MalformedFramesAreDropped) {
    Bench b;
    Bytes const tooShort = lineCode(Bytes{0x01, 0x00, 0x01, 0x00, 0x00});
    Bytes lengthBeyondFrame = header(0x01, 2, {});
    lengthBeyondFrame[4] = 1;
    Bytes const badCobs{0x00, 0x05, 0x01, 0x02, 0x00};
    for (Bytes const& bytes : {tooShort, lineCode(lengthBeyondFrame), badCobs}) {
        b.host.sendRaw(bytes);
        EXPECT_TRUE(b.host.received().empty());
    }

    // A frame split across reads, with extra bytes after its payload, is fine.
    Bytes request = lineCode(concat({header(0x01, 7, {}), Bytes{0xEE, 0xEE}}));
    b.host.sendRaw(Bytes(request.begin(), request.begin() + 4));
    EXPECT_TRUE(b.host.received().empty());
    b.host.sendRaw(Bytes(request.begin() + 4, request.end()));
    ASSERT_EQ(b.host.received().size(), 1u);
    auto const frame = parsePlain(cobsBody(b.host.received()[0]));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->code, 0);
    EXPECT_EQ(frame->sequence, 7);
}

TEST(SimFaults, SilentCommandsAreNeitherRunNorAnsweredAndDroppedAnswersAreNotSent) {
    Bench b;
    b.device.faults().configure({.silentCommands = 2});
    EXPECT_TRUE(b.host.exchange(0x14, {0}).empty());
    EXPECT_TRUE(b.host.exchange(0x14, {0}).empty());
    EXPECT_TRUE(b.device.snapshot().relayOn);
    EXPECT_EQ(b.device.faults().settings().silentCommands, 0u);
    EXPECT_EQ(b.host.call(0x14, {0}).code, 0);
    EXPECT_FALSE(b.device.snapshot().relayOn);

    // A dropped answer is one whose command ran.
    b.device.faults().configure({.dropFraction = 1.0});
    EXPECT_TRUE(b.host.exchange(0x14, {1}).empty());
    EXPECT_TRUE(b.device.snapshot().relayOn);
    b.device.faults().configure({.dropFraction = 0.0});
    EXPECT_EQ(b.host.exchange(0x01).size(), 1u);
}

TEST(SimFaults, CorruptedAnswerDiffersInOneBodyByte) {
    Bench b;
    b.device.faults().configure({.corruptFraction = 1.0});
    for (uint16_t sequence = 1; sequence <= 20; ++sequence) {
        b.host.sendRaw(b.host.encode(0x00, sequence, {}));
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

TEST(SimSession, SendMayFeedTheSessionAgain) {
    Bench b;
    std::vector<Frame> answers;
    std::unique_ptr<sim::DeviceSession> session;
    session = b.device.openSession(sim::SessionMode::Plain, [&](uint8_t const* data, size_t length) {
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
    Bench b;
    std::atomic<int> answered = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            TestHost own(b.device);
            for (int i = 0; i < 200; ++i) {
                Bytes const relay{static_cast<uint8_t>(i % 4 == 0)};
                answered += own.call(i % 2 ? 0x04 : 0x14, i % 2 ? Bytes{} : relay).code == 0;
                if (t == 0) b.clock.advance(1);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(answered, 4 * 200);
}

TEST(SimHub, HelloOpensTheSessionInAnyPiecesOrClosesIt) {
    struct Case {
        size_t chunk;
        bool wrongChannel;
        uint8_t version;
        bool open;
    };
    for (Case const c : {Case{1, false, 0x02, true}, Case{5, false, 0x02, true}, Case{16, false, 0x02, true},
                         Case{17, true, 0x02, false}, Case{17, false, 0x01, false}}) {
        SCOPED_TRACE(testing::Message() << c.chunk << " " << c.wrongChannel << " " << int{c.version});
        Bench b;
        Zelmor::WifiAccessKey key = b.device.accessKey();
        if (c.wrongChannel) key.keyId[15] ^= 1;
        TestHost hub(b.device, sim::SessionMode::Hub, key, c.chunk, c.version);
        EXPECT_EQ(hub.session().closed(), !c.open);
        hub.synchronise();
        EXPECT_EQ(hub.received().size(), c.open ? 1u : 0u);
        if (c.open) {
            EXPECT_EQ(hub.call(0x01).code, 0);
        }
    }
}

// The device's first IV is its own secret: the first frame reaches it garbled
// and is dropped, the answer to the second cannot be read, the third is.
TEST(SimHub, ChainsGetInStepAfterThrowawayFramesAndFramesArePaddedToWholeBlocks) {
    Bench b;
    TestHost hub(b.device, sim::SessionMode::Hub);
    EXPECT_TRUE(hub.exchange(0).empty());
    auto frames = hub.exchange(0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_FALSE(frames[0].has_value());
    frames = hub.exchange(0);
    ASSERT_EQ(frames.size(), 1u);
    ASSERT_TRUE(frames[0].has_value());
    EXPECT_EQ(frames[0]->code, 1);

    // (n + 23) & ~15 bytes: 82 -> 96, 0 -> 16, 89 -> 112, 53 -> 64.
    auto const frameSizes = [&hub] {
        std::vector<size_t> sizes;
        for (Bytes const& encoded : hub.received()) sizes.push_back(cobsBody(encoded).size());
        return sizes;
    };
    for (auto const& [code, size] : {std::pair<uint16_t, size_t>{0x01, 96}, {0x54, 16}, {0x62, 112}, {0x04, 64}}) {
        EXPECT_EQ(hub.call(code).code, 0);
        EXPECT_EQ(frameSizes(), std::vector<size_t>{size}) << code;
    }
    // Continuation frames are encrypted one by one: 64 + 40 bytes of configuration.
    hub.session().setMaxFramePayload(64);
    EXPECT_EQ(hub.call(0x20).payload.size(), 104u);
    EXPECT_EQ(frameSizes(), (std::vector<size_t>{80, 48}));
}

TEST(SimHub, DamagedFramesAreDropped) {
    Bench b;
    TestHost hub(b.device, sim::SessionMode::Hub);
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

// A hub whose chain also starts from zero is in step from its first frame,
// here one that shares a read with the hello.
TEST(SimHub, HelloMayShareAReadWithAFrame) {
    Bench b;
    std::vector<Bytes> sent;
    auto session =
        b.device.openSession(sim::SessionMode::Hub, [&](uint8_t const* d, size_t n) { sent.emplace_back(d, d + n); });
    Zelmor::WifiAccessKey const key = b.device.accessKey();
    Bytes frame = header(0x01, 9, {});
    frame.resize(16, 0);
    writeLe<uint16_t>(frame.data() + 14, crc16Kermit(frame.data(), 14));
    Aes256Cbc cipher;
    cipher.init(key.key);
    cipher.setIv(nullptr);
    cipher.encrypt(frame.data(), frame.size());
    Bytes const bytes = concat({Bytes{0x02}, Bytes(key.keyId.begin(), key.keyId.end()), lineCode(frame)});
    session->receive(bytes.data(), bytes.size());
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(cobsBody(sent[0]).size(), 96u);  // the 82 bytes of the info answer
}

}  // namespace
