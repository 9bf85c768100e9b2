// The cost of the protocol layers, each printed beside a baseline measured in
// the same run:
//  - frame coding: encodeFrame, the COBS stream decoder and decodeFrame of one
//    frame, plain and encrypted, in MB/s of payload, against memcpy of the same
//    payload bytes;
//  - the request engine: closed-loop requestGetMonitorData against the
//    in-process simulated device, on a plain and on an encrypted (hub) link,
//    in requests/s, against a bare condition-variable hand-off between two
//    threads, in round trips/s. Every request costs one such round trip
//    (worker thread to link thread and back), so the ratio shows what the
//    engine and the device add to the thread switches.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "aes256_cbc.h"
#include "cobs.h"
#include "frame_codec.h"
#include "in_process_zelmor.h"
#include "simulated_device.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRepeats = 3;
constexpr uint16_t kGetMonitorData = 0x04;
// The longest COBS body a frame of the largest payload can take, encrypted.
constexpr size_t kMaxBody = encryptedFrameSize(kMaxFramePayload) + encryptedFrameSize(kMaxFramePayload) / 254 + 1;

// Keeps the compiler from dropping a computation whose result is never used.
template <class T>
void keep(T const& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Operations per second of `batch(count)`. The batch size is grown until one
// batch takes about `seconds`; then the best of a few batches counts, since the
// machine is shared and the best batch is the one least disturbed.
double bestRate(std::function<void(size_t)> const& batch, double seconds) {
    size_t count = 1;
    double elapsed = 0;
    for (;;) {
        auto const start = Clock::now();
        batch(count);
        elapsed = secondsSince(start);
        if (elapsed >= seconds / 8) break;
        count *= 4;
    }
    count = std::max<size_t>(1, static_cast<size_t>(static_cast<double>(count) * seconds / elapsed));
    double best = 0;
    for (int i = 0; i < kRepeats; ++i) {
        auto const start = Clock::now();
        batch(count);
        best = std::max(best, static_cast<double>(count) / secondsSince(start));
    }
    return best;
}

[[noreturn]] void fail(char const* what) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

// One frame of `size` payload bytes per step, sent through a sender's
// encodeFrame and taken back by a receiver as the engine does: stream decoder,
// then decodeFrame. On an encrypted link each side has its own cipher, keyed
// and started alike, so the receiver's chain follows the sender's.
class FrameRoundTrip {
public:
    FrameRoundTrip(size_t size, bool encrypted) : payload_(size), decoder_(kMaxBody), encrypted_(encrypted) {
        for (size_t i = 0; i < size; ++i) payload_[i] = static_cast<uint8_t>(i * 37 + 11);
        Aes256Cbc::Key key;
        for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(0xA0 + i);
        Aes256Cbc::Iv iv;
        for (size_t i = 0; i < iv.size(); ++i) iv[i] = static_cast<uint8_t>(0x30 + i);
        sender_.init(key);
        sender_.setIv(iv.data());
        receiver_.init(key);
        receiver_.setIv(iv.data());
    }

    void run(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            FrameHeader const header{kGetMonitorData, static_cast<uint16_t>(++sequence_),
                                     static_cast<uint16_t>(payload_.size())};
            wire_.clear();
            encodeFrame(header, payload_.data(), encrypted_ ? &sender_ : nullptr, wire_);
            bool whole = false;
            decoder_.feed(wire_.data(), wire_.size(), [&](uint8_t* frame, size_t length) {
                std::optional<FrameHeader> const got = decodeFrame(frame, length, encrypted_ ? &receiver_ : nullptr);
                whole = got && got->sequence == header.sequence && got->length == header.length &&
                        std::memcmp(frame + kFrameHeaderSize, payload_.data(), payload_.size()) == 0;
            });
            if (!whole) fail("a frame did not survive encoding and decoding");
        }
    }

private:
    std::vector<uint8_t> payload_;
    std::vector<uint8_t> wire_;
    CobsStreamDecoder decoder_;
    Aes256Cbc sender_;
    Aes256Cbc receiver_;
    bool encrypted_;
    uint32_t sequence_ = 0;
};

double memcpyRate(size_t size, double seconds) {
    std::vector<uint8_t> source(size, 0x5A);
    std::vector<uint8_t> target(size);
    return bestRate(
        [&](size_t count) {
            for (size_t i = 0; i < count; ++i) {
                std::memcpy(target.data(), source.data(), size);
                keep(target.data());
            }
        },
        seconds);
}

void frameCoding(double seconds) {
    std::printf("Frame encode + COBS stream decode + decodeFrame, MB/s of payload\n");
    std::printf("%-10s %6s %12s %12s %10s\n", "link", "bytes", "codec MB/s", "memcpy MB/s", "codec/cpy");
    for (bool const encrypted : {false, true}) {
        for (size_t const size : {size_t{64}, size_t{1024}, size_t{4096}}) {
            FrameRoundTrip trip(size, encrypted);
            double const frames = bestRate([&](size_t count) { trip.run(count); }, seconds);
            double const copies = memcpyRate(size, seconds);
            double const codecMb = frames * static_cast<double>(size) / 1e6;
            double const copyMb = copies * static_cast<double>(size) / 1e6;
            std::printf("%-10s %6zu %12.1f %12.1f %10.4f\n", encrypted ? "encrypted" : "plain", size, codecMb, copyMb,
                        codecMb / copyMb);
        }
    }
}

// Thread A posts a token, thread B answers it, A waits for the answer: the
// least work a request can cost when its answer arrives on another thread.
class HandOff {
public:
    HandOff() : partner_([this] { answerLoop(); }) {}
    ~HandOff() {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        posted_.notify_one();
        partner_.join();
    }
    HandOff(HandOff const&) = delete;
    HandOff& operator=(HandOff const&) = delete;

    // Both sides notify after unlocking, as the engine and the in-process link
    // do, so that the woken thread does not run straight into a held mutex.
    void roundTrips(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            {
                std::lock_guard lock(mutex_);
                token_ = true;
            }
            posted_.notify_one();
            std::unique_lock lock(mutex_);
            answered_.wait(lock, [this] { return !token_; });
        }
    }

private:
    void answerLoop() {
        for (;;) {
            {
                std::unique_lock lock(mutex_);
                posted_.wait(lock, [this] { return token_ || stop_; });
                if (stop_) return;
                token_ = false;
            }
            answered_.notify_one();
        }
    }

    std::mutex mutex_;
    std::condition_variable posted_;
    std::condition_variable answered_;
    bool token_ = false;
    bool stop_ = false;
    std::thread partner_;
};

// A connected engine over which batches of requests run in a closed loop:
// each request is issued from the callback of the one before.
class RequestLoop {
public:
    RequestLoop(sim::SimulatedDevice& device, bool hub) : link_(device) {
        link_.setConnectedCallback([this] {
            std::lock_guard lock(mutex_);
            connected_ = true;
            done_.notify_all();
        });
        if (hub)
            link_.connectHub(device.accessKey());
        else
            link_.connectLan(0);
        std::unique_lock lock(mutex_);
        done_.wait(lock, [this] { return connected_; });
    }

    void run(size_t count) {
        {
            std::lock_guard lock(mutex_);
            remaining_ = count;
        }
        issue();
        std::unique_lock lock(mutex_);
        done_.wait(lock, [this] { return remaining_ == 0; });
    }

    size_t failures() const {
        std::lock_guard lock(mutex_);
        return failures_;
    }

private:
    void issue() {
        link_.requestGetMonitorData([this](Zelmor::ResponseCode code, Zelmor::MonitorData const&) {
            {
                std::lock_guard lock(mutex_);
                if (code != Zelmor::ResponseCode::Success) ++failures_;
                if (--remaining_ == 0) {
                    done_.notify_all();
                    return;
                }
            }
            issue();
        });
    }

    mutable std::mutex mutex_;
    std::condition_variable done_;
    bool connected_ = false;
    size_t remaining_ = 0;
    size_t failures_ = 0;
    // Last, so that it goes first: its threads, which call back into the
    // members above, end before those members do.
    InProcessZelmor link_;
};

void requestEngine(double seconds) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x10;
    // A clock that stands still: the device has no catching up to do, so only
    // the protocol is measured.
    config.clock = [] { return int64_t{1700000000}; };
    sim::SimulatedDevice device(config);

    std::printf("\nrequestGetMonitorData in a closed loop against the in-process device (revision 0x10)\n");
    std::printf("%-10s %14s %18s %10s\n", "link", "requests/s", "hand-offs/s", "req/hand");
    for (bool const hub : {false, true}) {
        double requests = 0;
        size_t failures = 0;
        {
            RequestLoop loop(device, hub);
            // The hub link's throwaway requests and the first answers go before the clock starts.
            loop.run(16);
            if (loop.failures() != 0) fail("a warm-up request failed");
            requests = bestRate([&](size_t count) { loop.run(count); }, seconds);
            failures = loop.failures();
        }
        double handOffs = 0;
        {
            HandOff handOff;
            handOffs = bestRate([&](size_t count) { handOff.roundTrips(count); }, seconds);
        }
        std::printf("%-10s %14.0f %18.0f %10.4f\n", hub ? "hub" : "plain", requests, handOffs, requests / handOffs);
        if (failures != 0) {
            std::fprintf(stderr, "%zu requests failed on the %s link\n", failures, hub ? "hub" : "plain");
            std::exit(1);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    bool const quick = argc > 1 && std::string(argv[1]) == "--quick";
    // Time per measured batch; each measurement takes about four of them.
    double const codecSeconds = quick ? 0.005 : 0.15;
    double const engineSeconds = quick ? 0.02 : 0.75;
    frameCoding(codecSeconds);
    requestEngine(engineSeconds);
    return 0;
}
