// The word-at-a-time CRC-16 and COBS coders against plain byte-at-a-time
// references, on random inputs: every length, alignment and zero density a
// link can produce must give the same bytes as the simple form.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "cobs.h"
#include "crc16.h"
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

}  // namespace

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

TEST(CobsDifferential, StreamDecoderResetForgetsAPartFrame) {
    CobsStreamDecoder decoder(16);
    std::vector<Bytes> frames;
    auto collect = [&](uint8_t* f, size_t n) { frames.emplace_back(f, f + n); };
    Bytes const part = fromHex("00 03 11");
    decoder.feed(part.data(), part.size(), collect);
    decoder.reset();
    Bytes const whole = fromHex("02 33 00");
    decoder.feed(whole.data(), whole.size(), collect);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(hex(frames[0]), "33");
}
