// The line coding, checksums and ciphers that every frame goes through: golden
// vectors, and the word-at-a-time CRC-16 and COBS coders against plain
// byte-at-a-time references on random inputs, so that every length, alignment
// and zero density a link can produce gives the same bytes as the simple form.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <random>
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

using Bytes = std::vector<uint8_t>;

uint16_t referenceCrc16(uint8_t const* data, size_t length) {
    uint16_t crc = 0;
    for (size_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0x8408) : crc >> 1;
    }
    return crc;
}

Bytes referenceEncode(Bytes const& in) {
    Bytes out{0};
    Bytes block;
    auto flush = [&] {
        out.push_back(static_cast<uint8_t>(block.size() + 1));
        out.insert(out.end(), block.begin(), block.end());
        block.clear();
    };
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] == 0) {
            flush();
            continue;
        }
        block.push_back(in[i]);
        if (block.size() == 254 && i + 1 < in.size()) flush();
    }
    flush();
    out.push_back(0);
    return out;
}

std::optional<Bytes> referenceDecode(Bytes const& body) {
    Bytes out;
    size_t i = 0;
    while (i < body.size()) {
        size_t const code = body[i++];
        if (code == 0) return std::nullopt;
        for (size_t k = 1; k < code; ++k) {
            if (i == body.size() || body[i] == 0) return std::nullopt;
            out.push_back(body[i++]);
        }
        if (code != 0xFF && i < body.size()) out.push_back(0);
    }
    return out;
}

// The stream rules byte by byte: a zero ends a frame; an empty, oversized or
// malformed one is skipped.
std::vector<Bytes> referenceStream(Bytes const& stream, size_t maxBody) {
    std::vector<Bytes> frames;
    Bytes body;
    bool overflow = false;
    for (uint8_t b : stream) {
        if (b != 0) {
            body.push_back(b);
            overflow = overflow || body.size() > maxBody;
            continue;
        }
        if (!body.empty() && !overflow) {
            if (auto frame = referenceDecode(body)) frames.push_back(*frame);
        }
        body.clear();
        overflow = false;
    }
    return frames;
}

// Random bytes where each one is zero with probability `zeroChance`.
Bytes randomBytes(std::mt19937& rng, size_t length, double zeroChance) {
    std::bernoulli_distribution zero(zeroChance);
    std::uniform_int_distribution<int> nonZero(1, 255);
    Bytes out(length);
    for (uint8_t& b : out) b = zero(rng) ? 0 : static_cast<uint8_t>(nonZero(rng));
    return out;
}

std::vector<size_t> lengthsToTry(std::mt19937& rng) {
    std::vector<size_t> lengths;
    for (size_t boundary : {0u, 254u, 508u, 762u})
        for (size_t l = boundary > 2 ? boundary - 2 : 0; l <= boundary + 2; ++l) lengths.push_back(l);
    std::uniform_int_distribution<size_t> any(1, 3000);
    for (int i = 0; i < 40; ++i) lengths.push_back(any(rng));
    return lengths;
}

constexpr double kZeroChances[] = {0.0, 1.0 / 300, 1.0 / 16, 0.5, 1.0};

Bytes cobs(Bytes const& in) {
    Bytes out;
    cobsEncode(in.data(), in.size(), out);
    return out;
}

Bytes run(uint8_t first, size_t count) {
    Bytes out(count);
    for (size_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(1 + (first + i) % 255);  // never zero
    return out;
}

}  // namespace

TEST(Cobs, GoldenEncodings) {
    struct Case {
        Bytes in;
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
    Bytes const data = run(1, 255);
    std::string const first254 = hex(data.data(), 254);
    EXPECT_EQ(hex(cobs(Bytes(data.begin(), data.begin() + 254))), "00 ff " + first254 + " 00");
    EXPECT_EQ(hex(cobs(data)), "00 ff " + first254 + " 02 " + hex(data.data() + 254, 1) + " 00");
}

TEST(Cobs, StreamDecoderSplitsFramesAndDropsBadOnes) {
    CobsStreamDecoder decoder(16);
    std::vector<Bytes> frames;
    auto collect = [&](uint8_t* f, size_t n) { frames.emplace_back(f, f + n); };

    // Two frames back to back, fed one byte at a time, then a malformed body
    // (its code byte runs past the end) and an oversized body.
    Bytes stream = cobs({0x11, 0x00, 0x22});
    auto second = cobs({0x33});
    stream.insert(stream.end(), second.begin(), second.end());
    for (uint8_t b : fromHex("00 05 11 00")) stream.push_back(b);
    stream.push_back(0);
    for (int i = 0; i < 20; ++i) stream.push_back(0x44);
    stream.push_back(0);
    auto third = cobs({0x55});
    stream.insert(stream.end(), third.begin(), third.end());

    for (uint8_t b : stream) decoder.feed(&b, 1, collect);

    // reset() forgets a frame begun before it.
    Bytes const part = fromHex("00 03 11");
    decoder.feed(part.data(), part.size(), collect);
    decoder.reset();
    Bytes const whole = fromHex("02 77 00");
    decoder.feed(whole.data(), whole.size(), collect);

    ASSERT_EQ(frames.size(), 4u);
    EXPECT_EQ(hex(frames[0]), "11 00 22");
    EXPECT_EQ(hex(frames[1]), "33");
    EXPECT_EQ(hex(frames[2]), "55");
    EXPECT_EQ(hex(frames[3]), "77");
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
    auto const keyBytes =
        fromHex("60 3d eb 10 15 ca 71 be 2b 73 ae f0 85 7d 77 81 1f 35 2c 07 3b 61 08 d7 2d 98 10 a3 09 14 df f4");
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
    EXPECT_EQ(hex(Bytes(aes.iv().begin(), aes.iv().end())), cipher.substr(cipher.size() - 47));

    aes.setIv(iv.data());
    aes.decrypt(data.data(), 16);
    aes.decrypt(data.data() + 16, 48);
    EXPECT_EQ(data, plain);

    uint8_t odd[17] = {};
    EXPECT_THROW(aes.encrypt(odd, sizeof odd), std::logic_error);
}

TEST(Frames, GoldenPlainFrames) {
    Bytes out;
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
        Bytes payload(n, 0xA5), wire;
        encodeFrame({0x0004, static_cast<uint16_t>(n), static_cast<uint16_t>(n)}, payload.data(), &sender, wire);
        Bytes frame(wire.size());
        auto length = cobsDecode(wire.data() + 1, wire.size() - 2, frame.data());
        ASSERT_TRUE(length);
        ASSERT_EQ(*length, encryptedFrameSize(n));
        auto header = decodeFrame(frame.data(), *length, &receiver);
        ASSERT_TRUE(header) << n;
        EXPECT_EQ(header->code, 0x0004);
        EXPECT_EQ(header->length, n);
        EXPECT_EQ(Bytes(frame.begin() + 6, frame.begin() + 6 + static_cast<long>(n)), payload);
    }
}

TEST(Frames, ReceiveRulesDropBrokenFrames) {
    // Short plain frames are dropped on the way through the request engine (request_engine_test).
    Aes256Cbc sender, receiver;
    Bytes wire;
    encodeFrame({0, 1, 2}, fromHex("aa bb").data(), &sender, wire);
    Bytes frame(wire.size());
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
    EXPECT_NE(Bytes(a, a + 32), Bytes(b, b + 32));
}

TEST(Crc16, MatchesBitwiseReferenceAtAnyLengthAndAlignment) {
    std::mt19937 rng(7);
    Bytes const data = randomBytes(rng, 1000 + 16, 1.0 / 16);
    std::uniform_int_distribution<size_t> length(0, 1000);
    for (size_t start = 0; start < 16; ++start) {
        for (int i = 0; i < 40; ++i) {
            size_t const n = length(rng);
            ASSERT_EQ(crc16Kermit(data.data() + start, n), referenceCrc16(data.data() + start, n))
                << "start " << start << " length " << n;
        }
    }
}

TEST(CobsDifferential, EncodesAndDecodesLikeTheReference) {
    std::mt19937 rng(11);
    for (double chance : kZeroChances) {
        for (size_t length : lengthsToTry(rng)) {
            Bytes const in = randomBytes(rng, length, chance);
            Bytes const expected = referenceEncode(in);
            // Appending after bytes already there must leave them alone.
            Bytes encoded{0xAB};
            cobsEncode(in.data(), in.size(), encoded);
            ASSERT_EQ(hex(encoded.data() + 1, encoded.size() - 1), hex(expected))
                << "length " << length << " zero chance " << chance;
            ASSERT_LE(encoded.size() - 1, cobsMaxEncodedSize(length));

            Bytes decoded(expected.size());
            auto const n = cobsDecode(expected.data() + 1, expected.size() - 2, decoded.data());
            ASSERT_TRUE(n) << "length " << length;
            decoded.resize(*n);
            ASSERT_EQ(decoded, in) << "length " << length << " zero chance " << chance;
        }
    }
}

TEST(CobsDifferential, AcceptsAndRejectsBodiesLikeTheReference) {
    std::mt19937 rng(13);
    std::uniform_int_distribution<size_t> length(0, 600);
    std::uniform_int_distribution<int> anyByte(0, 255);
    for (double chance : {0.0, 1.0 / 300, 1.0 / 16}) {
        for (int i = 0; i < 400; ++i) {
            Bytes body = randomBytes(rng, length(rng), chance);
            // Mostly valid bodies with one byte changed, so both outcomes are common.
            if (i % 2 == 0 && !body.empty()) {
                body = referenceEncode(body);
                body = Bytes(body.begin() + 1, body.end() - 1);
                body[static_cast<size_t>(anyByte(rng)) % body.size()] = static_cast<uint8_t>(anyByte(rng));
            }
            Bytes out(body.size());
            auto const n = cobsDecode(body.data(), body.size(), out.data());
            auto const expected = referenceDecode(body);
            ASSERT_EQ(n.has_value(), expected.has_value()) << hex(body);
            if (n) {
                ASSERT_EQ(Bytes(out.begin(), out.begin() + static_cast<long>(*n)), *expected) << hex(body);
            }
        }
    }
}

TEST(CobsDifferential, StreamDecoderSplitsLikeTheReference) {
    std::mt19937 rng(17);
    constexpr size_t kMaxBody = 300;
    std::uniform_int_distribution<size_t> frameLength(0, 400);
    std::uniform_int_distribution<int> kind(0, 9);
    for (double chance : kZeroChances) {
        // Well-formed frames, some longer than the limit once encoded, mixed
        // with raw noise (malformed bodies, empty bodies, stray zeros).
        Bytes stream;
        for (int f = 0; f < 200; ++f) {
            Bytes const payload = randomBytes(rng, frameLength(rng), chance);
            if (kind(rng) < 2) {
                stream.insert(stream.end(), payload.begin(), payload.end());
            } else {
                Bytes const encoded = referenceEncode(payload);
                stream.insert(stream.end(), encoded.begin(), encoded.end());
            }
        }
        std::vector<Bytes> const expected = referenceStream(stream, kMaxBody);

        // The same stream in random pieces, single bytes and empty feeds included.
        std::uniform_int_distribution<size_t> piece(0, 700);
        std::bernoulli_distribution tiny(0.3);
        CobsStreamDecoder decoder(kMaxBody);
        std::vector<Bytes> frames;
        for (size_t at = 0; at < stream.size();) {
            size_t const n = std::min(tiny(rng) ? piece(rng) % 2 : piece(rng), stream.size() - at);
            decoder.feed(stream.data() + at, n,
                         [&](uint8_t* frame, size_t length) { frames.emplace_back(frame, frame + length); });
            at += n;
        }
        ASSERT_EQ(frames.size(), expected.size()) << "zero chance " << chance;
        for (size_t i = 0; i < frames.size(); ++i) ASSERT_EQ(frames[i], expected[i]) << "frame " << i;
    }
}
