// Golden vectors of the line coding, checksums and ciphers that every frame
// goes through.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "aes256_cbc.h"
#include "auth_key.h"
#include "cobs.h"
#include "crc16.h"
#include "frame_codec.h"
#include "random_bytes.h"
#include "test_bytes.h"

namespace {

std::vector<uint8_t> cobs(std::vector<uint8_t> const& in) {
    std::vector<uint8_t> out;
    cobsEncode(in.data(), in.size(), out);
    return out;
}

std::vector<uint8_t> run(uint8_t first, size_t count) {
    std::vector<uint8_t> out(count);
    for (size_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(1 + (first + i) % 255);  // never zero
    return out;
}

}  // namespace

TEST(Cobs, GoldenEncodings) {
    struct Case {
        std::vector<uint8_t> in;
        std::string encoded;
    } const cases[] = {
        {{}, "00 01 00"},
        {{0x00}, "00 01 01 00"},
        {{0x00, 0x00}, "00 01 01 01 00"},
        {{0x11, 0x22, 0x00, 0x33}, "00 03 11 22 02 33 00"},
        {{0x11, 0x00, 0x00, 0x00}, "00 02 11 01 01 01 00"},
        {{0x01, 0x00, 0x01, 0x00, 0x00, 0x00}, "00 02 01 02 01 01 01 01 00"},
    };
    for (auto const& c : cases) EXPECT_EQ(hex(cobs(c.in)), c.encoded);
}

TEST(Cobs, SplitsRunsAt254DataBytes) {
    std::vector<uint8_t> const run254 = run(1, 254);
    auto encoded = cobs(run254);
    ASSERT_EQ(encoded.size(), 254u + 3);
    EXPECT_EQ(encoded[1], 0xFF);

    std::vector<uint8_t> const run255 = run(1, 255);
    encoded = cobs(run255);
    ASSERT_EQ(encoded.size(), 255u + 4);
    EXPECT_EQ(encoded[1], 0xFF);
    EXPECT_EQ(encoded[256], 0x02);

    for (size_t length : {253u, 254u, 255u, 508u, 509u, 1000u}) {
        std::vector<uint8_t> data = run(7, length);
        data.insert(data.begin() + static_cast<long>(length / 2), 0);
        encoded = cobs(data);
        EXPECT_LE(encoded.size(), cobsMaxEncodedSize(data.size()));
        std::vector<uint8_t> decoded(encoded.size());
        auto n = cobsDecode(encoded.data() + 1, encoded.size() - 2, decoded.data());
        ASSERT_TRUE(n);
        decoded.resize(*n);
        EXPECT_EQ(decoded, data) << "length " << length;
    }
}

TEST(Cobs, StreamDecoderSplitsFramesAndDropsBadOnes) {
    CobsStreamDecoder decoder(16);
    std::vector<std::vector<uint8_t>> frames;
    auto collect = [&](uint8_t* f, size_t n) { frames.emplace_back(f, f + n); };

    // Two frames back to back, fed one byte at a time, then a malformed body
    // (its code byte runs past the end) and an oversized body.
    std::vector<uint8_t> stream = cobs({0x11, 0x00, 0x22});
    auto second = cobs({0x33});
    stream.insert(stream.end(), second.begin(), second.end());
    for (uint8_t b : fromHex("00 05 11 00")) stream.push_back(b);
    stream.push_back(0);
    for (int i = 0; i < 20; ++i) stream.push_back(0x44);
    stream.push_back(0);
    auto third = cobs({0x55});
    stream.insert(stream.end(), third.begin(), third.end());

    for (uint8_t b : stream) decoder.feed(&b, 1, collect);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(hex(frames[0]), "11 00 22");
    EXPECT_EQ(hex(frames[1]), "33");
    EXPECT_EQ(hex(frames[2]), "55");
}

TEST(Checksums, Crc16KermitOfCheckString) {
    std::string const check = "123456789";
    EXPECT_EQ(crc16Kermit(reinterpret_cast<uint8_t const*>(check.data()), check.size()), 0x2189);
    EXPECT_EQ(crc16Kermit(nullptr, 0), 0x0000);
}

TEST(Crypto, Sha256PasswordKeys) {
    EXPECT_EQ(hex(makeAuthKey("")),
              "e3 b0 c4 42 98 fc 1c 14 9a fb f4 c8 99 6f b9 24 27 ae 41 e4 64 9b 93 4c a4 95 99 1b 78 52 b8 55");
    EXPECT_EQ(hex(makeAuthKey("abc")),
              "ba 78 16 bf 8f 01 cf ea 41 41 40 de 5d ae 22 23 b0 03 61 a3 96 17 7a 9c b4 10 ff 61 f2 00 15 ad");
}

TEST(Crypto, Aes256Fips197Block) {
    Aes256Cbc aes;
    Aes256Cbc::Key key;
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(i);
    aes.init(key);
    aes.setIv(nullptr);
    auto block = fromHex("00 11 22 33 44 55 66 77 88 99 aa bb cc dd ee ff");
    aes.encrypt(block.data(), block.size());
    EXPECT_EQ(hex(block), "8e a2 b7 ca 51 67 45 bf ea fc 49 90 4b 49 60 89");
    aes.setIv(nullptr);
    aes.decrypt(block.data(), block.size());
    EXPECT_EQ(hex(block), "00 11 22 33 44 55 66 77 88 99 aa bb cc dd ee ff");
}

TEST(Crypto, Aes256CbcChainsAcrossCalls) {
    // NIST SP 800-38A, CBC-AES256, encrypted as two calls of two blocks each:
    // the second call must continue the chain where the first ended.
    Aes256Cbc aes;
    auto const keyBytes = fromHex(
        "60 3d eb 10 15 ca 71 be 2b 73 ae f0 85 7d 77 81 1f 35 2c 07 3b 61 08 d7 2d 98 10 a3 09 14 df f4");
    Aes256Cbc::Key key;
    std::copy(keyBytes.begin(), keyBytes.end(), key.begin());
    aes.init(key);
    auto const iv = fromHex("00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f");
    auto const plain = fromHex(
        "6b c1 be e2 2e 40 9f 96 e9 3d 7e 11 73 93 17 2a ae 2d 8a 57 1e 03 ac 9c 9e b7 6f ac 45 af 8e 51 "
        "30 c8 1c 46 a3 5c e4 11 e5 fb c1 19 1a 0a 52 ef f6 9f 24 45 df 4f 9b 17 ad 2b 41 7b e6 6c 37 10");
    std::string const cipher =
        "f5 8c 4c 04 d6 e5 f1 ba 77 9e ab fb 5f 7b fb d6 9c fc 4e 96 7e db 80 8d 67 9f 77 7b c6 70 2c 7d "
        "39 f2 33 69 a9 d9 ba cf a5 30 e2 63 04 23 14 61 b2 eb 05 e2 c3 9b e9 fc da 6c 19 07 8c 6a 9d 1b";

    auto data = plain;
    aes.setIv(iv.data());
    aes.encrypt(data.data(), 32);
    aes.encrypt(data.data() + 32, 32);
    EXPECT_EQ(hex(data), cipher);
    EXPECT_EQ(hex(std::vector<uint8_t>(aes.iv().begin(), aes.iv().end())), cipher.substr(cipher.size() - 47));

    aes.setIv(iv.data());
    aes.decrypt(data.data(), 16);
    aes.decrypt(data.data() + 16, 48);
    EXPECT_EQ(data, plain);

    uint8_t odd[17] = {};
    EXPECT_THROW(aes.encrypt(odd, sizeof odd), std::logic_error);
}

TEST(Frames, GoldenPlainFrames) {
    std::vector<uint8_t> out;
    encodeFrame({0x01, 1, 0}, nullptr, nullptr, out);
    EXPECT_EQ(hex(out), "00 02 01 02 01 01 01 01 00");

    out.clear();
    uint8_t const on = 1;
    encodeFrame({0x14, 0x1234, 1}, &on, nullptr, out);
    EXPECT_EQ(hex(out), "00 02 14 04 34 12 01 02 01 00");
}

TEST(Frames, EncryptedFramesArePaddedAndCarryTheCrc) {
    EXPECT_EQ(encryptedFrameSize(0), 16u);
    EXPECT_EQ(encryptedFrameSize(8), 16u);
    EXPECT_EQ(encryptedFrameSize(9), 32u);
    EXPECT_EQ(encryptedFrameSize(254), 272u);

    Aes256Cbc sender, receiver;
    Aes256Cbc::Key key{};
    key[0] = 0x42;
    sender.init(key);
    receiver.init(key);
    for (size_t n : {0u, 8u, 9u, 300u}) {
        std::vector<uint8_t> payload(n, 0xA5), wire;
        encodeFrame({0x0004, static_cast<uint16_t>(n), static_cast<uint16_t>(n)}, payload.data(), &sender, wire);
        std::vector<uint8_t> frame(wire.size());
        auto length = cobsDecode(wire.data() + 1, wire.size() - 2, frame.data());
        ASSERT_TRUE(length);
        ASSERT_EQ(*length, encryptedFrameSize(n));
        auto header = decodeFrame(frame.data(), *length, &receiver);
        ASSERT_TRUE(header) << n;
        EXPECT_EQ(header->code, 0x0004);
        EXPECT_EQ(header->length, n);
        EXPECT_EQ(std::vector<uint8_t>(frame.begin() + 6, frame.begin() + 6 + static_cast<long>(n)), payload);
    }
}

TEST(Frames, ReceiveRulesDropBrokenFrames) {
    struct Case {
        char const* what;
        std::string frame;
    } const plainCases[] = {
        {"shorter than a header", "00 00 01"},
        {"shorter than its payload length", "00 00 01 00 04 00 aa bb cc"},
    };
    for (auto const& c : plainCases) {
        auto frame = fromHex(c.frame);
        EXPECT_FALSE(decodeFrame(frame.data(), frame.size(), nullptr)) << c.what;
    }

    Aes256Cbc sender, receiver;
    std::vector<uint8_t> wire;
    encodeFrame({0, 1, 2}, fromHex("aa bb").data(), &sender, wire);
    std::vector<uint8_t> frame(wire.size());
    size_t const length = *cobsDecode(wire.data() + 1, wire.size() - 2, frame.data());

    auto misaligned = frame;
    EXPECT_FALSE(decodeFrame(misaligned.data(), length - 1, &receiver)) << "not whole blocks";
    Aes256Cbc fresh;
    auto flipped = frame;
    flipped[3] ^= 0x01;
    EXPECT_FALSE(decodeFrame(flipped.data(), length, &fresh)) << "bad CRC";
}

TEST(RandomBytes, RetriesInterruptionsAndShortReads) {
    static int calls;
    calls = 0;
    auto flaky = [](void* buffer, size_t length, unsigned int) -> ssize_t {
        ++calls;
        if (calls == 1) {
            errno = EINTR;
            return -1;
        }
        size_t const n = length > 3 ? 3 : length;  // never more than 3 bytes at a time
        std::memset(buffer, 0x5A, n);
        return static_cast<ssize_t>(n);
    };
    uint8_t buffer[10] = {};
    EXPECT_TRUE(fillRandom(buffer, sizeof buffer, flaky));
    EXPECT_EQ(calls, 1 + 4);
    for (uint8_t b : buffer) EXPECT_EQ(b, 0x5A);

    auto broken = [](void*, size_t, unsigned int) -> ssize_t {
        errno = ENOSYS;
        return -1;
    };
    EXPECT_FALSE(fillRandom(buffer, sizeof buffer, broken));

    uint8_t a[32] = {}, b[32] = {};
    ASSERT_TRUE(fillRandom(a, sizeof a));
    ASSERT_TRUE(fillRandom(b, sizeof b));
    EXPECT_NE(std::vector<uint8_t>(a, a + 32), std::vector<uint8_t>(b, b + 32));
}
