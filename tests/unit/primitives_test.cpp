// The line coding, checksums, ciphers and frames that every exchange goes
// through: golden vectors, the word-at-a-time COBS coder on random inputs of
// every length and zero density, and each CRC-16 path against a bitwise
// reference at every length and alignment.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "aes256_cbc.h"
#include "auth_key.h"
#include "base64.h"
#include "byte_io.h"
#include "cobs.h"
#include "crc16.h"
#include "crc16_paths.h"
#include "frame_codec.h"
#include "hex.h"
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

// Random bytes where each one is zero with probability `zeroChance`.
Bytes randomBytes(std::mt19937& rng, size_t length, double zeroChance) {
    std::bernoulli_distribution zero(zeroChance);
    std::uniform_int_distribution<int> nonZero(1, 255);
    Bytes out(length);
    for (uint8_t& b : out) b = zero(rng) ? 0 : static_cast<uint8_t>(nonZero(rng));
    return out;
}

Bytes cobs(Bytes const& in) {
    Bytes out;
    cobsEncode(in.data(), in.size(), out);
    return out;
}

// 1, 2, ... 255, 1, 2, ...: never zero.
Bytes run(size_t count) {
    Bytes out(count);
    for (size_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(1 + i % 255);
    return out;
}

std::vector<uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

std::string encode(std::vector<uint8_t> const& bytes, Base64Mode mode) {
    return base64Encode(bytes.data(), bytes.size(), mode);
}

TEST(Base64Test, GoldenVectorsInEveryMode) {
    struct Case {
        std::vector<uint8_t> input;
        std::string standard;
        std::string urlSafe;
        std::string percentEncoded;
    };
    Case const cases[] = {
        // RFC 4648, section 10.
        {bytesOf(""), "", "", ""},
        {bytesOf("f"), "Zg==", "Zg==", "Zg"},
        {bytesOf("fo"), "Zm8=", "Zm8=", "Zm8"},
        {bytesOf("foo"), "Zm9v", "Zm9v", "Zm9v"},
        // Values 62 and 63, where the modes differ.
        {{0xFB, 0xFF}, "+/8=", "-_8=", "%2B%2F8"},
        {{0xFB, 0xF0}, "+/A=", "-_A=", "%2B%2FA"},
        {{0x00, 0x00, 0x00, 0x00}, "AAAAAA==", "AAAAAA==", "AAAAAA"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.standard);
        EXPECT_EQ(encode(c.input, Base64Mode::Standard), c.standard);
        EXPECT_EQ(encode(c.input, Base64Mode::UrlSafe), c.urlSafe);
        EXPECT_EQ(encode(c.input, Base64Mode::PercentEncoded), c.percentEncoded);
        EXPECT_EQ(base64Decode(c.standard, Base64Mode::Standard), c.input);
        EXPECT_EQ(base64Decode(c.urlSafe, Base64Mode::UrlSafe), c.input);
    }
}

TEST(Base64Test, RejectsMalformedText) {
    struct Case {
        std::string_view text;
        Base64Mode mode;
    };
    Case const cases[] = {
        {"Zg", Base64Mode::Standard},        // padding missing
        {"Zg=", Base64Mode::Standard},       // length not a multiple of four
        {"Z===", Base64Mode::Standard},      // three padding symbols
        {"====", Base64Mode::UrlSafe},       // padding only
        {"Zg==Zg==", Base64Mode::Standard},  // padding inside
        {"=Zm9", Base64Mode::Standard},      // padding first
        {"Zh==", Base64Mode::Standard},      // unused bits not zero
        {"-_8=", Base64Mode::Standard},      // URL-safe symbols in standard text
        {"+/8=", Base64Mode::UrlSafe},       // standard symbols in URL-safe text
        {"Zm 9", Base64Mode::Standard},      // whitespace
        {"Zm9\xff", Base64Mode::Standard},   // not ASCII
        {std::string_view("Zm\0v", 4), Base64Mode::Standard},
        {"Zm9v", Base64Mode::PercentEncoded},  // never read back
    };
    for (auto const& c : cases) {
        EXPECT_FALSE(base64Decode(c.text, c.mode)) << "'" << c.text << "' mode " << static_cast<int>(c.mode);
    }
}

TEST(HexTest, EncodesLowerCaseDecodesEitherCaseAndRejectsMalformedText) {
    std::vector<uint8_t> all(256);
    for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<uint8_t>(i);
    std::string const text = hexEncode(all.data(), all.size());
    EXPECT_EQ(text.substr(0x7E * 2, 8), "7e7f8081");
    EXPECT_EQ(hexDecode(text), all);
    EXPECT_EQ(hexDecode("ABcdEF"), (std::vector<uint8_t>{0xAB, 0xCD, 0xEF}));
    EXPECT_EQ(hexDecode(""), std::vector<uint8_t>{});
    for (std::string_view bad : {"0", "abc", "0g", "G0", "0x12", " 12", "1-", "\xff\xff", "::", "@@", "``", "//"})
        EXPECT_FALSE(hexDecode(bad)) << "'" << bad << "'";
}

}  // namespace

TEST(Cobs, GoldenEncodings) {
    std::string const first254 = hex(run(254));
    Bytes withZero = run(254);
    withZero.push_back(0);
    struct Case {
        Bytes in;
        std::string encoded;
    } const cases[] = {
        {{}, "00 01 00"},
        {{0x00}, "00 01 01 00"},
        {{0x00, 0x00}, "00 01 01 01 00"},
        {{0x11, 0x22, 0x00, 0x33}, "00 03 11 22 02 33 00"},
        {{0x11, 0x00, 0x00, 0x00}, "00 02 11 01 01 01 00"},
        // A run of 254 data bytes fills a block; the 255th starts the next one.
        {run(254), "00 ff " + first254 + " 00"},
        {run(255), "00 ff " + first254 + " 02 ff 00"},
        {withZero, "00 ff " + first254 + " 01 01 00"},
    };
    for (auto const& c : cases) EXPECT_EQ(hex(cobs(c.in)), c.encoded);
}

// Bodies no encoder writes: a block running past the end or holding a zero is
// refused; a last block after a full one adds no zero.
TEST(Cobs, DecodesOnlyWellFormedBodies) {
    std::string const first254 = hex(run(254));
    struct Case {
        std::string body;
        std::optional<std::string> decoded;
    } const cases[] = {
        {"01", ""},
        {"01 01", "00"},
        {"03 11", std::nullopt},
        {"05 01 02", std::nullopt},
        {"03 11 00 02 22", std::nullopt},
        {"ff " + first254 + " 01", first254},
        {"ff " + first254 + " 02 11", first254 + " 11"},
    };
    for (auto const& c : cases) {
        Bytes const body = fromHex(c.body);
        Bytes decoded(body.size());
        auto const n = cobsDecode(body.data(), body.size(), decoded.data());
        ASSERT_EQ(n.has_value(), c.decoded.has_value()) << c.body;
        if (n) {
            EXPECT_EQ(hex(decoded.data(), *n), *c.decoded);
        }
    }
}

TEST(Cobs, StreamDecoderResetForgetsAFrameBegunBeforeIt) {
    CobsStreamDecoder decoder(16);
    std::vector<Bytes> frames;
    auto collect = [&](uint8_t* f, size_t n) { frames.emplace_back(f, f + n); };
    Bytes const part = fromHex("00 03 11");
    decoder.feed(part.data(), part.size(), collect);
    decoder.reset();
    Bytes const whole = fromHex("02 77 00");
    decoder.feed(whole.data(), whole.size(), collect);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(hex(frames[0]), "77");
}

// Random inputs of every zero density, at the block boundaries and beyond,
// come back from their encodings. The stream decoder, fed the encodings in
// pieces that split them anywhere, between oversized runs and malformed
// frames, gives back exactly the inputs whose bodies fit.
TEST(Cobs, RoundTripsThroughTheStreamDecoder) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<size_t> anyLength(1, 3000);
    constexpr size_t kMaxBody = 1000;
    Bytes const malformed = fromHex("00 05 01 02 00");
    Bytes const oversized = run(kMaxBody + 1);
    for (double chance : {0.0, 1.0 / 300, 1.0 / 16, 0.5, 1.0}) {
        std::vector<size_t> lengths;
        for (size_t boundary : {2u, 254u, 508u, 762u})
            for (size_t l = boundary - 2; l <= boundary + 2; ++l) lengths.push_back(l);
        for (int i = 0; i < 40; ++i) lengths.push_back(anyLength(rng));
        Bytes stream;
        std::vector<Bytes> fitting;
        for (size_t length : lengths) {
            SCOPED_TRACE(testing::Message() << "length " << length << " zero chance " << chance);
            Bytes const in = randomBytes(rng, length, chance);
            Bytes encoded{0xAB};  // appending after bytes already there must leave them alone
            cobsEncode(in.data(), in.size(), encoded);
            ASSERT_EQ(encoded[0], 0xAB);
            ASSERT_LE(encoded.size() - 1, cobsMaxEncodedSize(length));
            Bytes const body(encoded.begin() + 2, encoded.end() - 1);
            Bytes decoded(body.size());
            auto const n = cobsDecode(body.data(), body.size(), decoded.data());
            ASSERT_TRUE(n);
            ASSERT_EQ(hex(decoded.data(), *n), hex(in));
            if (body.size() <= kMaxBody) fitting.push_back(in);
            Bytes const& noise = length % 2 ? malformed : oversized;
            stream.insert(stream.end(), noise.begin(), noise.end());
            stream.insert(stream.end(), encoded.begin() + 1, encoded.end());
        }
        CobsStreamDecoder decoder(kMaxBody);
        std::vector<Bytes> frames;
        // 97 is prime to every block and frame size here.
        for (size_t at = 0; at < stream.size(); at += 97) {
            decoder.feed(stream.data() + at, std::min<size_t>(97, stream.size() - at),
                         [&](uint8_t* f, size_t length) { frames.emplace_back(f, f + length); });
        }
        ASSERT_EQ(frames.size(), fitting.size()) << "zero chance " << chance;
        for (size_t i = 0; i < frames.size(); ++i) ASSERT_EQ(frames[i], fitting[i]) << "frame " << i;
    }
}

// crc16Kermit picks its path by length and CPU; each path is called here
// directly on every length to a few blocks past the folding width, a few large
// ones, and every alignment of the start.
TEST(Crc16, EveryPathMatchesTheBitwiseReferenceAndTheGoldenValues) {
    std::mt19937 rng(7);
    std::vector<size_t> lengths;
    for (size_t n = 0; n <= 200; ++n) lengths.push_back(n);
    for (size_t n : {1000u, 4096u, 4097u, 65541u}) lengths.push_back(n);
    Bytes const data = randomBytes(rng, 65541 + 16, 1.0 / 16);
    for (size_t n : lengths) {
        SCOPED_TRACE(testing::Message() << "length " << n);
        uint8_t const* const start = data.data() + n % 16;
        uint16_t const expected = referenceCrc16(start, n);
        EXPECT_EQ(crc16_paths::sliced(start, n), expected);
#if defined(__x86_64__)
        if (n >= crc16_paths::kFoldBytes && crc16_paths::canFold()) {
            EXPECT_EQ(crc16_paths::folded(start, n), expected);
        }
#endif
        EXPECT_EQ(crc16Kermit(start, n), expected);
    }
    std::string const check = "123456789";
    EXPECT_EQ(crc16Kermit(reinterpret_cast<uint8_t const*>(check.data()), check.size()), 0x2189);
}

TEST(Crypto, Sha256PasswordKeys) {
    EXPECT_EQ(hex(makeAuthKey("")),
              "e3 b0 c4 42 98 fc 1c 14 9a fb f4 c8 99 6f b9 24 27 ae 41 e4 64 9b 93 4c a4 95 99 1b 78 52 b8 55");
    EXPECT_EQ(hex(makeAuthKey("abc")),
              "ba 78 16 bf 8f 01 cf ea 41 41 40 de 5d ae 22 23 b0 03 61 a3 96 17 7a 9c b4 10 ff 61 f2 00 15 ad");
}

// The FIPS-197 C.3 block twice, from a zero IV: the second call must carry
// the chain on from the first, in both directions, also when decrypting in place.
TEST(Crypto, Aes256CbcChainsAcrossCalls) {
    std::string const plain = "00 11 22 33 44 55 66 77 88 99 aa bb cc dd ee ff";
    std::string const cipher =
        "8e a2 b7 ca 51 67 45 bf ea fc 49 90 4b 49 60 89 b6 ac 2f 11 b5 22 ec b5 d2 6f fc 21 28 0d 64 7b";
    Aes256Cbc aes;
    Aes256Cbc::Key key;
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(i);
    aes.init(key);
    Bytes data = fromHex(plain + " " + plain);
    aes.setIv(nullptr);
    aes.encrypt(data.data(), 16);
    aes.encrypt(data.data() + 16, 16);
    EXPECT_EQ(hex(data), cipher);
    EXPECT_EQ(hex(aes.iv()), cipher.substr(cipher.size() - 47));
    aes.setIv(nullptr);
    aes.decrypt(data.data(), 16);
    aes.decrypt(data.data() + 16, 16);
    EXPECT_EQ(hex(data), plain + " " + plain);
    // A new IV restarts a chain; the other direction goes on from where it ended.
    aes.setIv(nullptr);
    aes.encrypt(data.data(), 16);
    aes.setIv(nullptr);
    aes.encrypt(data.data() + 16, 16);
    Bytes second = fromHex(cipher.substr(48));
    aes.decrypt(second.data(), 16);
    EXPECT_EQ(hex(data) + " " + hex(second), cipher.substr(0, 47) + " " + cipher.substr(0, 47) + " " + plain);
    uint8_t odd[17] = {};
    EXPECT_THROW(aes.encrypt(odd, sizeof odd), std::logic_error);
}

TEST(Frames, GoldenFrames) {
    // The encrypted frame: key 42 00 .. 00 and a zero IV.
    Aes256Cbc cipher;
    Aes256Cbc::Key key{};
    key[0] = 0x42;
    cipher.init(key);
    uint8_t const on = 1;
    Bytes out;
    encodeFrame({0x01, 1, 0}, nullptr, nullptr, out);
    EXPECT_EQ(hex(out), "00 02 01 02 01 01 01 01 00");
    out.clear();
    encodeFrame({0x14, 0x1234, 1}, &on, nullptr, out);
    EXPECT_EQ(hex(out), "00 02 14 04 34 12 01 02 01 00");
    out.clear();
    encodeFrame({0x14, 0x1234, 1}, &on, &cipher, out);
    EXPECT_EQ(hex(out), "00 11 f6 4e cf 95 1e 7f 72 02 7c 88 0a 33 8e 69 73 fb 00");

    EXPECT_EQ(encryptedFrameSize(0), 16u);
    EXPECT_EQ(encryptedFrameSize(8), 16u);
    EXPECT_EQ(encryptedFrameSize(9), 32u);
    EXPECT_EQ(encryptedFrameSize(254), 272u);
}

TEST(Frames, ReceiveRules) {
    // Encrypted rows are sealed as a sender does (CRC in the last two bytes,
    // then encrypted) unless they are not whole blocks; `corrupt` changes a
    // payload bit after the CRC was taken.
    struct Case {
        char const* what;
        bool encrypted;
        std::string frame;
        bool corrupt;
        bool accepted;
    } const cases[] = {
        {"plain, empty payload", false, "00 00 01 00 00 00", false, true},
        {"plain, shorter than a header", false, "00 00 01 00 00", false, false},
        {"plain, payload whole", false, "00 00 01 00 02 00 aa bb", false, true},
        {"plain, payload cut short", false, "00 00 01 00 03 00 aa bb", false, false},
        {"encrypted, payload up to the CRC", true, "00 00 01 00 08 00 01 02 03 04 05 06 07 08 00 00", false, true},
        {"encrypted, payload over the CRC", true, "00 00 01 00 09 00 01 02 03 04 05 06 07 08 00 00", false, false},
        {"encrypted, bad CRC", true, "00 00 01 00 02 00 aa bb 00 00 00 00 00 00 00 00", true, false},
        {"encrypted, not whole blocks", true, "00 00 01 00 02 00 aa bb 00 00 00 00 00 00 00", false, false},
        {"encrypted, empty", true, "", false, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        Aes256Cbc sender;
        Aes256Cbc receiver;
        Bytes frame = fromHex(c.frame);
        if (c.encrypted && !frame.empty() && frame.size() % 16 == 0) {
            writeLe<uint16_t>(frame.data() + frame.size() - 2, crc16Kermit(frame.data(), frame.size() - 2));
            if (c.corrupt) frame[6] ^= 0x01;
            sender.encrypt(frame.data(), frame.size());
        }
        auto const header = decodeFrame(frame.data(), frame.size(), c.encrypted ? &receiver : nullptr);
        EXPECT_EQ(header.has_value(), c.accepted);
    }
}

TEST(RandomBytes, RetriesInterruptionsAndShortReadsAndFailsOnErrorsOrNothing) {
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
    EXPECT_EQ(hex(buffer, sizeof buffer), hex(Bytes(10, 0x5A)));

    auto broken = [](void*, size_t, unsigned int) -> ssize_t {
        errno = ENOSYS;
        return -1;
    };
    EXPECT_FALSE(fillRandom(buffer, sizeof buffer, broken));
    auto dry = [](void*, size_t, unsigned int) -> ssize_t { return 0; };
    EXPECT_FALSE(fillRandom(buffer, sizeof buffer, dry));
}
