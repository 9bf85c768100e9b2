// The encrypted hub session: hello, chained CBC in both directions, padding
// and CRC.
#include <gtest/gtest.h>

#include "sim_test_host.h"

namespace {

using namespace simtest;

TEST(SimHub, ChainsGetInStepAfterThrowawayFrames) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device, sim::SessionMode::Hub);
    EXPECT_FALSE(host.session().closed());

    // The first frame reaches the device garbled and is dropped: no answer.
    EXPECT_TRUE(host.exchange(0).empty());
    // The second is answered, but the host cannot read the answer: the device's
    // first IV is its own secret.
    auto frames = host.exchange(0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_FALSE(frames[0].has_value());
    frames = host.exchange(0);
    ASSERT_EQ(frames.size(), 1u);
    ASSERT_TRUE(frames[0].has_value());
    EXPECT_EQ(frames[0]->code, 1);

    Answer const info = host.call(0x01);
    EXPECT_EQ(info.code, 0);
    EXPECT_EQ(info.payload.size(), 82u);
}

TEST(SimHub, EncryptedFramesArePaddedToWholeBlocks) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device, sim::SessionMode::Hub);
    host.synchronise();
    // (n + 23) & ~15 bytes: 82 -> 96, 0 -> 16, 89 -> 112, 53 -> 64.
    struct Case {
        uint16_t code;
        size_t frameSize;
    };
    for (Case const c : {Case{0x01, 96}, Case{0x54, 16}, Case{0x62, 112}, Case{0x04, 64}}) {
        host.exchange(c.code);
        ASSERT_EQ(host.received().size(), 1u);
        EXPECT_EQ(cobsBody(host.received()[0]).size(), c.frameSize) << c.code;
    }
}

TEST(SimHub, ContinuationFramesAreEachEncrypted) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device, sim::SessionMode::Hub);
    host.synchronise();
    host.session().setMaxFramePayload(64);
    Answer const config = host.call(0x20);
    EXPECT_EQ(config.code, 0);
    EXPECT_EQ(config.payload.size(), 104u);
    EXPECT_EQ(host.received().size(), 2u);
}

TEST(SimHub, FrameWithBadCrcIsDroppedButAdvancesTheChain) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device, sim::SessionMode::Hub);
    host.synchronise();
    Bytes ciphertext = cobsBody(host.encode(0x01, 50, {}));
    ciphertext[3] ^= 0x40;
    host.sendRaw(lineCode(ciphertext));
    EXPECT_TRUE(host.received().empty());
    // The device chained on from the damaged block, so the next frame differs
    // in one byte after decryption and fails its CRC as well.
    EXPECT_TRUE(host.exchange(0x01).empty());
    EXPECT_EQ(host.call(0x01).code, 0);
}

TEST(SimHub, FrameOfWrongLengthIsDropped) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device, sim::SessionMode::Hub);
    host.synchronise();
    host.sendRaw(lineCode(Bytes(20, 0x33)));
    EXPECT_TRUE(host.received().empty());
    EXPECT_EQ(host.call(0x01).code, 0);
}

TEST(SimHub, HelloMaySpanSeveralReads) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    for (size_t chunk : {1, 5, 16}) {
        TestHost host(device, sim::SessionMode::Hub, std::nullopt, chunk);
        EXPECT_FALSE(host.session().closed());
        host.synchronise();
        EXPECT_EQ(host.call(0x01).code, 0) << chunk;
    }
}

TEST(SimHub, HelloAndFrameInOneRead) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    std::vector<Bytes> sent;
    auto session =
        device.openSession(sim::SessionMode::Hub, [&](uint8_t const* d, size_t n) { sent.emplace_back(d, d + n); });
    Zelmor::WifiAccessKey const key = device.accessKey();
    // A host whose chain also starts from zero is in step from its first frame.
    Bytes frame = header(0x01, 9, {});
    frame.resize(16, 0);
    writeLe<uint16_t>(frame.data() + 14, crc16Kermit(frame.data(), 14));
    Aes256Cbc cipher;
    cipher.init(key.key);
    cipher.setIv(nullptr);
    cipher.encrypt(frame.data(), frame.size());
    Bytes bytes{0x02};
    bytes.insert(bytes.end(), key.keyId.begin(), key.keyId.end());
    Bytes const coded = lineCode(frame);
    bytes.insert(bytes.end(), coded.begin(), coded.end());
    session->receive(bytes.data(), bytes.size());
    EXPECT_EQ(sent.size(), 1u);
    // 82 bytes of info answer make a 96-byte encrypted frame.
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(cobsBody(sent[0]).size(), 96u);
}

TEST(SimHub, WrongHelloClosesTheSession) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    Zelmor::WifiAccessKey wrongId = device.accessKey();
    wrongId.keyId[15] ^= 1;
    TestHost stranger(device, sim::SessionMode::Hub, wrongId);
    EXPECT_TRUE(stranger.session().closed());
    stranger.synchronise();
    EXPECT_TRUE(stranger.received().empty());

    std::vector<Bytes> sent;
    auto session =
        device.openSession(sim::SessionMode::Hub, [&](uint8_t const* d, size_t n) { sent.emplace_back(d, d + n); });
    Zelmor::WifiAccessKey const key = device.accessKey();
    Bytes hello{0x01};
    hello.insert(hello.end(), key.keyId.begin(), key.keyId.end());
    session->receive(hello.data(), hello.size());
    EXPECT_TRUE(session->closed());
}

TEST(SimHub, ResetAccessKeysLocksOutTheOldKey) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    Zelmor::WifiAccessKey const oldKey = device.accessKey();
    {
        TestHost host(device, sim::SessionMode::Hub);
        host.synchronise();
        Answer const keys = host.call(0x62);
        ASSERT_EQ(keys.payload.size(), 89u);
        EXPECT_EQ(Bytes(keys.payload.begin() + 41, keys.payload.begin() + 57),
                  Bytes(oldKey.keyId.begin(), oldKey.keyId.end()));
        EXPECT_EQ(Bytes(keys.payload.begin() + 57, keys.payload.end()), Bytes(oldKey.key.begin(), oldKey.key.end()));
        EXPECT_EQ(host.call(0x63).code, 0);
        // The link that asked for the new key keeps working.
        EXPECT_EQ(host.call(0x01).code, 0);
    }
    Zelmor::WifiAccessKey const newKey = device.accessKey();
    EXPECT_NE(newKey.keyId, oldKey.keyId);
    EXPECT_NE(newKey.key, oldKey.key);
    TestHost stale(device, sim::SessionMode::Hub, oldKey);
    EXPECT_TRUE(stale.session().closed());
    TestHost fresh(device, sim::SessionMode::Hub);
    fresh.synchronise();
    EXPECT_EQ(fresh.call(0x01).code, 0);
}

}  // namespace
