// Throughput of the line coding, CRC-16/KERMIT and COBS, each beside the
// byte-at-a-time form the library used before, compiled into this program as
// the baseline. Short frames (20 bytes, as a monitor-data request) and long
// ones (128 KiB, a log block), the long ones once with few zero bytes (as
// ciphertext) and once with many (as records of small integers). Then the
// cost of each step a 128 KiB log block takes through both ends of a link.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "best_rates.h"
#include "aes256_cbc.h"
#include "cobs.h"
#include "crc16.h"
#include "frame_codec.h"
#include "simulated_device.h"
#include "zelmor_impl.h"

namespace {

using bench::Clock;
using Bytes = std::vector<uint8_t>;

constexpr int kRounds = 5;
constexpr size_t kShortFrame = 20;
constexpr size_t kLongFrame = 128 * 1024;
// The stream decoder gets its bytes in the pieces the connection reads.
constexpr size_t kReadSize = ZelmorImpl::kReadBufferSize;

// The byte-at-a-time coders the library had before, kept here unchanged as the
// reference the current ones are measured against.
namespace baseline {

constexpr std::array<uint16_t, 256> makeCrcTable() {
    std::array<uint16_t, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        uint16_t crc = static_cast<uint16_t>(i);
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0x8408) : crc >> 1;
        table[i] = crc;
    }
    return table;
}

constexpr auto kCrcTable = makeCrcTable();

uint16_t crc16Kermit(uint8_t const* data, size_t length) {
    uint16_t crc = 0;
    for (size_t i = 0; i < length; ++i) crc = static_cast<uint16_t>((crc >> 8) ^ kCrcTable[(crc ^ data[i]) & 0xFF]);
    return crc;
}

void cobsEncode(uint8_t const* data, size_t length, std::vector<uint8_t>& out) {
    out.reserve(out.size() + cobsMaxEncodedSize(length));
    out.push_back(0);
    size_t codeAt = out.size();
    out.push_back(1);
    uint8_t code = 1;
    for (size_t i = 0; i < length; ++i) {
        if (data[i] == 0) {
            out[codeAt] = code;
            codeAt = out.size();
            out.push_back(1);
            code = 1;
            continue;
        }
        out.push_back(data[i]);
        ++code;
        if (code == 0xFF && i + 1 < length) {
            out[codeAt] = code;
            codeAt = out.size();
            out.push_back(1);
            code = 1;
        }
    }
    out[codeAt] = code;
    out.push_back(0);
}

std::optional<size_t> cobsDecode(uint8_t const* body, size_t length, uint8_t* out) {
    size_t in = 0;
    size_t n = 0;
    while (in < length) {
        uint8_t const code = body[in++];
        if (code == 0) return std::nullopt;
        size_t const blockEnd = in + code - 1;
        if (blockEnd > length) return std::nullopt;
        while (in < blockEnd) {
            if (body[in] == 0) return std::nullopt;
            out[n++] = body[in++];
        }
        if (code != 0xFF && in < length) out[n++] = 0;
    }
    return n;
}

class CobsStreamDecoder {
public:
    explicit CobsStreamDecoder(size_t maxBodyLength) : maxBodyLength_(maxBodyLength) {}

    template <class OnFrame>
    void feed(uint8_t const* data, size_t length, OnFrame&& onFrame) {
        for (size_t i = 0; i < length; ++i) {
            uint8_t const b = data[i];
            if (b != 0) {
                if (body_.size() < maxBodyLength_)
                    body_.push_back(b);
                else
                    overflow_ = true;
                continue;
            }
            if (!body_.empty() && !overflow_) {
                frame_.resize(body_.size());
                if (auto n = cobsDecode(body_.data(), body_.size(), frame_.data())) onFrame(frame_.data(), *n);
            }
            body_.clear();
            overflow_ = false;
        }
    }

private:
    size_t maxBodyLength_;
    std::vector<uint8_t> body_;
    std::vector<uint8_t> frame_;
    bool overflow_ = false;
};

}  // namespace baseline

// Keeps the compiler from dropping a computation whose result is never used.
template <class T>
void keep(T const& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

using bench::Batch;
using bench::bestRates;
using bench::secondsSince;

struct Rates {
    double current = 0;
    double old = 0;
};

Rates compare(Batch const& current, Batch const& old, double seconds) {
    std::vector<double> const rates = bestRates({current, old}, seconds, kRounds);
    return {rates[0], rates[1]};
}

// The shortest time `step` takes, in seconds.
double bestTime(std::function<void()> const& step, double seconds) {
    Batch const batch = [&](size_t count) {
        for (size_t i = 0; i < count; ++i) step();
    };
    return 1 / bestRates({batch}, seconds, kRounds)[0];
}

[[noreturn]] void fail(char const* what) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

// Random bytes, each one zero with probability `zeroChance`.
Bytes randomBytes(size_t length, double zeroChance, unsigned seed) {
    std::mt19937 rng(seed);
    std::bernoulli_distribution zero(zeroChance);
    std::uniform_int_distribution<int> nonZero(1, 255);
    Bytes out(length);
    for (uint8_t& b : out) b = zero(rng) ? 0 : static_cast<uint8_t>(nonZero(rng));
    return out;
}

struct Input {
    char const* name;
    Bytes bytes;
};

// A frame as encrypted (zeros as often as in any random byte) and as stored
// log records (small integers, a zero in every few bytes).
std::vector<Input> inputs() {
    return {
        {"short", randomBytes(kShortFrame, 0.25, 1)},
        {"long, few zeros", randomBytes(kLongFrame, 1.0 / 256, 2)},
        {"long, many zeros", randomBytes(kLongFrame, 0.25, 3)},
    };
}

// Prints the bytes per second of both forms, `bytes` being what one operation codes.
void report(char const* what, Input const& input, Rates rates, double bytes) {
    std::printf("%-14s %-17s %8zu %12.1f %12.1f %9.2f\n", what, input.name, input.bytes.size(),
                rates.current * bytes / 1e6, rates.old * bytes / 1e6, rates.current / rates.old);
}

void crc(Input const& input, double seconds) {
    Bytes const& in = input.bytes;
    if (crc16Kermit(in.data(), in.size()) != baseline::crc16Kermit(in.data(), in.size()))
        fail("the CRCs of the two forms differ");
    auto const rates = compare(
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) keep(crc16Kermit(in.data(), in.size()));
        },
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) keep(baseline::crc16Kermit(in.data(), in.size()));
        },
        seconds);
    report("crc16", input, rates, static_cast<double>(in.size()));
}

void encode(Input const& input, double seconds) {
    Bytes const& in = input.bytes;
    Bytes out;
    Bytes oldOut;
    cobsEncode(in.data(), in.size(), out);
    baseline::cobsEncode(in.data(), in.size(), oldOut);
    if (out != oldOut) fail("the encodings of the two forms differ");
    // Both append to a buffer cleared per frame, as the frame encoder does.
    auto const rates = compare(
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) {
                out.clear();
                cobsEncode(in.data(), in.size(), out);
                keep(out.data());
            }
        },
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) {
                oldOut.clear();
                baseline::cobsEncode(in.data(), in.size(), oldOut);
                keep(oldOut.data());
            }
        },
        seconds);
    report("cobs encode", input, rates, static_cast<double>(in.size()));
}

void decode(Input const& input, double seconds) {
    Bytes encoded;
    cobsEncode(input.bytes.data(), input.bytes.size(), encoded);
    uint8_t const* body = encoded.data() + 1;
    size_t const length = encoded.size() - 2;
    Bytes out(length);
    auto const n = cobsDecode(body, length, out.data());
    if (!n || Bytes(out.begin(), out.begin() + static_cast<long>(*n)) != input.bytes) fail("a body did not decode");
    auto const rates = compare(
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) keep(cobsDecode(body, length, out.data()));
        },
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) keep(baseline::cobsDecode(body, length, out.data()));
        },
        seconds);
    report("cobs decode", input, rates, static_cast<double>(input.bytes.size()));
}

// The stream decoder as the receive path runs it: the encoded frames, back to
// back, in socket-read pieces. Short frames are measured over as many frames
// as fill one long one.
template <class Decoder>
size_t feedStream(Decoder& decoder, Bytes const& stream) {
    size_t frames = 0;
    for (size_t at = 0; at < stream.size(); at += kReadSize) {
        decoder.feed(stream.data() + at, std::min(kReadSize, stream.size() - at), [&](uint8_t* frame, size_t) {
            keep(frame);
            ++frames;
        });
    }
    return frames;
}

void streamDecode(Input const& input, double seconds) {
    size_t const copies = std::max<size_t>(1, kLongFrame / input.bytes.size());
    Bytes stream;
    for (size_t i = 0; i < copies; ++i) cobsEncode(input.bytes.data(), input.bytes.size(), stream);
    size_t const maxBody = cobsMaxEncodedSize(input.bytes.size());
    CobsStreamDecoder decoder(maxBody);
    baseline::CobsStreamDecoder oldDecoder(maxBody);
    if (feedStream(decoder, stream) != copies || feedStream(oldDecoder, stream) != copies)
        fail("the stream decoder lost frames");
    auto const rates = compare(
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) feedStream(decoder, stream);
        },
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) feedStream(oldDecoder, stream);
        },
        seconds);
    report("stream decode", input, rates, static_cast<double>(input.bytes.size() * copies));
}

// Where the time of one 128 KiB log block goes on its way over a link: each
// step either side takes for it, timed alone over the block cut into frames as
// the simulated device cuts an answer. link_bench prints what a block takes
// over the links, to set beside the sum.
class BlockSteps {
public:
    BlockSteps(Bytes const& block, size_t framePayload, double seconds) : block_(block), seconds_(seconds) {
        Aes256Cbc::Key key;
        for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(0x40 + i);
        Aes256Cbc::Iv const iv{};
        cipher_.init(key);
        cipher_.setIv(iv.data());
        for (size_t at = 0; at < block.size(); at += framePayload) {
            size_t const n = std::min(framePayload, block.size() - at);
            Bytes frame;
            encodeFrame({kContinuationCode, 1, static_cast<uint16_t>(n)}, block.data() + at, nullptr, frame);
            plainWire_.insert(plainWire_.end(), frame.begin(), frame.end());
            frame.clear();
            encodeFrame({kContinuationCode, 1, static_cast<uint16_t>(n)}, block.data() + at, &cipher_, frame);
            cipherWire_.insert(cipherWire_.end(), frame.begin(), frame.end());
            payloadSizes_.push_back(n);
        }
        decodeAll(plainWire_, plainFrames_);
        decodeAll(cipherWire_, cipherFrames_);
    }

    // The answer copied out of the log, each frame's payload into a frame
    // buffer, and a frame's worth of bytes into a buffer of its own (the
    // connection's send queue).
    double senderCopies() {
        return time([&] {
            Bytes const answer(block_.begin(), block_.end());
            size_t at = 0;
            for (size_t n : payloadSizes_) {
                frame_.resize(kFrameHeaderSize + n);
                std::memcpy(frame_.data() + kFrameHeaderSize, answer.data() + at, n);
                Bytes const queued(frame_.begin(), frame_.end());
                keep(queued.data());
                at += n;
            }
        });
    }
    double crc(bool encrypted) {
        if (!encrypted) return 0;
        return time([&] {
            for (Bytes const& f : cipherFrames_) crcSink_ ^= crc16Kermit(f.data(), f.size() - 2);
        });
    }
    // Frame by frame, as both ends do; the bytes need not be real ciphertext.
    double encrypt(bool encrypted) {
        if (!encrypted) return 0;
        std::vector<Bytes> scratch = cipherFrames_;
        return time([&] {
            for (Bytes& f : scratch) cipher_.encrypt(f.data(), f.size());
        });
    }
    double decrypt(bool encrypted) {
        if (!encrypted) return 0;
        std::vector<Bytes> scratch = cipherFrames_;
        return time([&] {
            for (Bytes& f : scratch) cipher_.decrypt(f.data(), f.size());
        });
    }
    double cobsEncoding(bool encrypted) {
        std::vector<Bytes> const& frames = encrypted ? cipherFrames_ : plainFrames_;
        return time([&] {
            for (Bytes const& f : frames) {
                frame_.clear();
                cobsEncode(f.data(), f.size(), frame_);
            }
        });
    }
    // The receive path's stream decoder, fed in the pieces one socket read returns.
    double cobsDecoding(bool encrypted) {
        Bytes const& wire = encrypted ? cipherWire_ : plainWire_;
        CobsStreamDecoder decoder(cobsMaxEncodedSize(kMaxFramePayload + 32));
        return time([&] {
            for (size_t at = 0; at < wire.size(); at += kReadSize)
                decoder.feed(wire.data() + at, std::min(kReadSize, wire.size() - at),
                             [&](uint8_t* frame, size_t) { crcSink_ ^= frame[0]; });
        });
    }
    // The answer put together from its frames, then handed to the caller, who keeps a copy.
    double receiverCopies() {
        Bytes kept(block_.size());
        return time([&] {
            Bytes answer;
            size_t at = 0;
            for (size_t n : payloadSizes_) {
                answer.insert(answer.end(), block_.data() + at, block_.data() + at + n);
                at += n;
            }
            std::memcpy(kept.data(), answer.data(), answer.size());
            keep(kept.data());
        });
    }
    uint16_t sink() const { return crcSink_; }

private:
    double time(std::function<void()> const& step) { return bestTime(step, seconds_); }

    static void decodeAll(Bytes const& wire, std::vector<Bytes>& frames) {
        CobsStreamDecoder decoder(wire.size());
        decoder.feed(wire.data(), wire.size(), [&](uint8_t* f, size_t n) { frames.emplace_back(f, f + n); });
    }

    Bytes const& block_;
    double seconds_;
    Aes256Cbc cipher_;
    Bytes plainWire_;
    Bytes cipherWire_;
    std::vector<size_t> payloadSizes_;
    std::vector<Bytes> plainFrames_;
    std::vector<Bytes> cipherFrames_;
    Bytes frame_;
    uint16_t crcSink_ = 0;
};

void blockSteps(double seconds) {
    sim::SimulatedDeviceConfig config;
    config.logIntervalSeconds = 1;
    config.historyDays = 1;
    config.clock = [] { return int64_t{1700000000}; };
    sim::SimulatedDevice device(config);
    Bytes block;
    for (sim::LogFileEntry const& file : device.logFiles()) {
        Bytes const bytes = device.logFile(file.id);
        if (bytes.size() > block.size()) block = bytes;
    }
    block.resize(std::min(block.size(), kLongFrame));
    size_t const zeros = static_cast<size_t>(std::count(block.begin(), block.end(), 0));
    std::printf("\nOne %zu-byte block of a device's log (%.1f %% zero bytes) in frames of %zu payload bytes, us\n",
                block.size(), 100.0 * static_cast<double>(zeros) / static_cast<double>(block.size()),
                config.maxFramePayload);
    std::printf("%-42s %10s %10s\n", "step", "plain", "hub");
    BlockSteps steps(block, config.maxFramePayload, seconds);
    struct Row {
        char const* name;
        std::function<double(bool)> cost;
    } const rows[] = {
        {"device: copies (answer, frames, send queue)", [&](bool) { return steps.senderCopies(); }},
        {"device: CRC-16", [&](bool e) { return steps.crc(e); }},
        {"device: AES-256-CBC encrypt", [&](bool e) { return steps.encrypt(e); }},
        {"device: COBS encode", [&](bool e) { return steps.cobsEncoding(e); }},
        {"host: COBS stream decode", [&](bool e) { return steps.cobsDecoding(e); }},
        {"host: AES-256-CBC decrypt", [&](bool e) { return steps.decrypt(e); }},
        {"host: CRC-16", [&](bool e) { return steps.crc(e); }},
        {"host: copies (answer, the caller's copy)", [&](bool) { return steps.receiverCopies(); }},
    };
    double plainTotal = 0;
    double hubTotal = 0;
    for (Row const& row : rows) {
        double const plain = row.cost(false);
        double const hub = row.cost(true);
        plainTotal += plain;
        hubTotal += hub;
        std::printf("%-42s %10.1f %10.1f\n", row.name, plain * 1e6, hub * 1e6);
    }
    std::printf("%-42s %10.1f %10.1f\n", "sum", plainTotal * 1e6, hubTotal * 1e6);
    keep(steps.sink());
}

}  // namespace

int main(int argc, char** argv) {
    bool const quick = argc > 1 && std::string(argv[1]) == "--quick";
    // Time per measured batch; each figure takes about six of them.
    double const seconds = quick ? 0.002 : 0.05;
    std::printf("Line coding, MB/s of unencoded bytes; old = the byte-at-a-time form compiled in here\n");
    std::printf("%-14s %-17s %8s %12s %12s %9s\n", "what", "input", "bytes", "new MB/s", "old MB/s", "new/old");
    std::vector<Input> const all = inputs();
    for (Input const& input : all) crc(input, seconds);
    for (Input const& input : all) encode(input, seconds);
    for (Input const& input : all) decode(input, seconds);
    for (Input const& input : all) streamDecode(input, seconds);
    blockSteps(seconds);
    return 0;
}
