// The network links end to end, each printed beside a raw loopback baseline
// measured in the same run:
//  - round trips of requestGetMonitorData through ZelmorImpl to a simulated
//    device served over TCP, on the LAN link and through the hub relay
//    (encrypted), against (a) a blocking ping-pong of the same sizes and
//    (b) the same ping-pong with a worker and a receive thread on each side
//    handing off through condition variables, the shape of the engine and of
//    the device's connection;
//  - log sync: a big log file read in 128 KiB blocks, one in flight, on both
//    links, against (c) a loop of 16-byte requests answered by 128 KiB. The
//    time per block is printed too, to set beside what codec_bench prints for
//    the frame coding steps of one block.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "best_rates.h"
#include "device_server.h"
#include "hub_relay.h"
#include "simulated_device.h"
#include "zelmor_impl.h"

namespace {

using bench::Clock;
using Bytes = std::vector<uint8_t>;

// A monitor-data request on the wire (a COBS-coded header) and its answer.
constexpr size_t kRequestSize = 9;
constexpr size_t kAnswerSize = 60;
constexpr size_t kBulkRequestSize = 16;
constexpr size_t kBlock = 128 * 1024;
constexpr double kBlockMb = static_cast<double>(kBlock) / 1e6;
constexpr char const* kLanAddress = "127.0.0.2";
constexpr uint32_t kLanAddressHostOrder = 0x7F000002;
constexpr char const* kHubAddress = "127.0.0.1";
constexpr auto kConnectTimeout = std::chrono::seconds(10);

using bench::Batch;
using bench::bestRates;
using bench::secondsSince;

[[noreturn]] void fail(std::string const& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

// ---------------------------------------------------------------------------
// Raw loopback sockets for the baselines, on ports the system picks.

void readExactly(int fd, uint8_t* data, size_t length) {
    while (length > 0) {
        ssize_t const got = ::read(fd, data, length);
        if (got <= 0) {
            if (got < 0 && errno == EINTR) continue;
            fail("baseline: read failed");
        }
        data += got;
        length -= static_cast<size_t>(got);
    }
}

// False once the peer has closed the connection.
bool readRequest(int fd, uint8_t* data, size_t length) {
    ssize_t got;
    for (size_t have = 0; have < length; have += static_cast<size_t>(got)) {
        do {
            got = ::read(fd, data + have, length - have);
        } while (got < 0 && errno == EINTR);
        if (got <= 0) return false;
    }
    return true;
}

void writeAll(int fd, uint8_t const* data, size_t length) {
    while (length > 0) {
        ssize_t const put = ::send(fd, data, length, MSG_NOSIGNAL);
        if (put < 0) {
            if (errno == EINTR) continue;
            return;  // the peer is gone; its side notices too
        }
        data += put;
        length -= static_cast<size_t>(put);
    }
}

// A connected pair of loopback TCP sockets with Nagle off, as both ends of a
// device link have it.
struct SocketPair {
    int client = -1;
    int server = -1;

    SocketPair() {
        int const listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (listener < 0 || ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listener, 1) != 0 || ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            fail("baseline: cannot listen on 127.0.0.1");
        client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (client < 0 || ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            fail("baseline: cannot connect on 127.0.0.1");
        server = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        ::close(listener);
        if (server < 0) fail("baseline: accept failed");
        int const one = 1;
        for (int fd : {client, server}) ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    ~SocketPair() {
        ::close(client);
        ::close(server);
    }
    SocketPair(SocketPair const&) = delete;
    SocketPair& operator=(SocketPair const&) = delete;

    // Ends the serving side's loop: it reads the end of the stream.
    void closeClientSide() const { ::shutdown(client, SHUT_WR); }
};

// (a) and (c): one thread per side, blocking reads and writes. The server
// answers every request of `requestSize` bytes with `answerSize` bytes.
class BlockingLoop {
public:
    BlockingLoop(size_t requestSize, size_t answerSize)
        : request_(requestSize, 0x11), answer_(answerSize, 0x22), server_([this] { serve(); }) {}
    ~BlockingLoop() {
        sockets_.closeClientSide();
        server_.join();
    }
    BlockingLoop(BlockingLoop const&) = delete;
    BlockingLoop& operator=(BlockingLoop const&) = delete;

    void run(size_t count) {
        Bytes received(answer_.size());
        for (size_t i = 0; i < count; ++i) {
            writeAll(sockets_.client, request_.data(), request_.size());
            readExactly(sockets_.client, received.data(), received.size());
        }
    }

private:
    void serve() {
        Bytes request(request_.size());
        while (readRequest(sockets_.server, request.data(), request.size()))
            writeAll(sockets_.server, answer_.data(), answer_.size());
    }

    SocketPair sockets_;
    Bytes const request_;
    Bytes const answer_;
    std::thread server_;
};

// One-slot mailbox between two threads; the poster notifies after unlocking,
// as the engine and the device's connection do.
class Mailbox {
public:
    void post() {
        {
            std::lock_guard lock(mutex_);
            full_ = true;
        }
        condition_.notify_one();
    }
    // False when closed.
    bool take() {
        std::unique_lock lock(mutex_);
        condition_.wait(lock, [this] { return full_ || closed_; });
        full_ = false;
        return !closed_;
    }
    void close() {
        {
            std::lock_guard lock(mutex_);
            closed_ = true;
        }
        condition_.notify_one();
    }

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    bool full_ = false;
    bool closed_ = false;
};

// (b): the ping-pong of (a) where each side has a receive thread that hands
// what it read to a second thread through a condition variable: on the client
// the calling thread plays the engine's worker, on the server a writer thread
// sends the answer as the device's connection does.
class ThreadedPingPong {
public:
    ThreadedPingPong()
        : clientReceiver_([this] { clientReceive(); }),
          serverReceiver_([this] { serverReceive(); }),
          serverWriter_([this] { serverWrite(); }) {}
    ~ThreadedPingPong() {
        sockets_.closeClientSide();
        serverReceiver_.join();
        serverWriter_.join();
        clientReceiver_.join();
    }
    ThreadedPingPong(ThreadedPingPong const&) = delete;
    ThreadedPingPong& operator=(ThreadedPingPong const&) = delete;

    void run(size_t count) {
        Bytes const request(kRequestSize, 0x11);
        for (size_t i = 0; i < count; ++i) {
            writeAll(sockets_.client, request.data(), request.size());
            if (!answered_.take()) fail("baseline: the threaded server went away");
        }
    }

private:
    void clientReceive() {
        Bytes answer(kAnswerSize);
        while (readRequest(sockets_.client, answer.data(), answer.size())) answered_.post();
        answered_.close();
    }
    void serverReceive() {
        Bytes request(kRequestSize);
        while (readRequest(sockets_.server, request.data(), request.size())) requested_.post();
        requested_.close();
    }
    void serverWrite() {
        Bytes const answer(kAnswerSize, 0x22);
        while (requested_.take()) writeAll(sockets_.server, answer.data(), answer.size());
        ::shutdown(sockets_.server, SHUT_WR);
    }

    SocketPair sockets_;
    Mailbox answered_;
    Mailbox requested_;
    std::thread clientReceiver_;
    std::thread serverReceiver_;
    std::thread serverWriter_;
};

// ---------------------------------------------------------------------------
// The library's link to the simulated device.

// A ZelmorImpl connected to the device, on the LAN link or through the hub.
// Batches of requests run in a closed loop, each sent from the callback of
// the one before, so that only the link is measured.
class LinkClient {
public:
    LinkClient(bool hub, Zelmor::WifiAccessKey const& accessKey) : link_(kHubAddress) {
        link_.setConnectedCallback([this] {
            std::lock_guard lock(mutex_);
            connected_ = true;
            done_.notify_all();
        });
        link_.setDisconnectCallback([this](Zelmor::DisconnectReason) {
            std::lock_guard lock(mutex_);
            lost_ = true;
            done_.notify_all();
        });
        if (hub)
            link_.connectHub(accessKey);
        else
            link_.connectLan(htonl(kLanAddressHostOrder));
        std::unique_lock lock(mutex_);
        done_.wait_for(lock, kConnectTimeout, [this] { return connected_ || lost_; });
        if (!connected_) fail(hub ? "cannot connect through the hub relay" : "cannot connect to the LAN device");
    }

    void roundTrips(size_t count) {
        start(count);
        requestMonitorData();
        wait("requestGetMonitorData");
    }

    // Reads out.size() bytes of a log file from its start, block by block.
    void readLog(uint32_t fileId, Bytes& out) {
        start((out.size() + kBlock - 1) / kBlock);
        requestBlock(fileId, 0, out);
        wait("requestReadLogFile");
    }

private:
    void start(size_t count) {
        std::lock_guard lock(mutex_);
        remaining_ = count;
        failed_ = false;
    }

    void wait(char const* what) {
        std::unique_lock lock(mutex_);
        done_.wait(lock, [this] { return remaining_ == 0 || failed_; });
        if (failed_) fail(std::string(what) + " failed");
    }

    // Counts one request down; true when the batch goes on.
    bool next(bool ok) {
        std::lock_guard lock(mutex_);
        if (!ok) failed_ = true;
        if (ok && --remaining_ > 0) return true;
        done_.notify_all();
        return false;
    }

    void requestMonitorData() {
        link_.requestGetMonitorData([this](Zelmor::ResponseCode code, Zelmor::MonitorData const&) {
            if (next(code == Zelmor::ResponseCode::Success)) requestMonitorData();
        });
    }

    void requestBlock(uint32_t fileId, size_t offset, Bytes& out) {
        auto const wanted = static_cast<uint32_t>(std::min(kBlock, out.size() - offset));
        link_.requestReadLogFile(
            fileId, static_cast<uint32_t>(offset), wanted,
            [this, fileId, offset, wanted, &out](Zelmor::ResponseCode code, uint8_t const* data, size_t length) {
                bool const ok = code == Zelmor::ResponseCode::Success && length == wanted;
                if (ok) std::memcpy(out.data() + offset, data, length);
                if (next(ok)) requestBlock(fileId, offset + length, out);
            });
    }

    std::mutex mutex_;
    std::condition_variable done_;
    bool connected_ = false;
    bool lost_ = false;
    size_t remaining_ = 0;
    bool failed_ = false;
    // Last, so that it goes first: its threads, which call back into the
    // members above, end before those members do.
    ZelmorImpl link_;
};

void printRatio(char const* what, double value, char const* baseline, double base, char const* unit, double ratio,
                char const* aim) {
    std::printf("%-32s %10.1f %-4s %-24s %10.1f %-4s %8.2f  %s\n", what, value, unit, baseline, base, unit, ratio, aim);
}

}  // namespace

int main(int argc, char** argv) {
    bool const quick = argc > 1 && std::string(argv[1]) == "--quick";
    // Time per measured batch, and rounds of batches taken in turn.
    double const seconds = quick ? 0.01 : 0.4;
    int const rounds = quick ? 2 : 5;

    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x41;  // a WiFi model: on the LAN and paired through the hub
    config.ipAddress = {127, 0, 0, 2};
    config.logIntervalSeconds = 1;
    config.historyDays = quick ? 1 : 3;
    // A clock that stands still: the device has no catching up to do, so only
    // the link is measured.
    config.clock = [] { return int64_t{1700000000}; };
    sim::SimulatedDevice device(config);
    sim::DeviceServer server(device, kLanAddress);
    sim::HubRelay relay(kHubAddress);
    relay.addDevice(device);
    if (!server.start()) fail(server.error());
    if (!relay.start()) fail(relay.error());

    LinkClient lan(false, device.accessKey());
    LinkClient hub(true, device.accessKey());
    // The hub link's throwaway requests and the first answers go before the clock starts.
    lan.roundTrips(16);
    hub.roundTrips(16);

    std::printf("requestGetMonitorData round trips over loopback TCP, us per round trip\n");
    std::vector<double> const trips =
        bestRates({
                      [](size_t count) { BlockingLoop(kRequestSize, kAnswerSize).run(count); },
                      [](size_t count) { ThreadedPingPong().run(count); },
                      [&](size_t count) { lan.roundTrips(count); },
                      [&](size_t count) { hub.roundTrips(count); },
                  },
                  seconds, rounds);
    double const blocking = 1e6 / trips[0];
    double const threaded = 1e6 / trips[1];
    double const lanTrip = 1e6 / trips[2];
    double const hubTrip = 1e6 / trips[3];
    std::printf("%-32s %10s      %-24s %10s      %8s  %s\n", "measured", "", "baseline", "", "ratio", "aim");
    printRatio("LAN link", lanTrip, "(b) ping-pong, threads", threaded, "us", lanTrip / threaded, "<= 1.2");
    printRatio("LAN link", lanTrip, "(a) ping-pong, blocking", blocking, "us", lanTrip / blocking, "<= 1.5");
    printRatio("hub link", hubTrip, "(b) ping-pong, threads", threaded, "us", hubTrip / threaded, "");

    // The biggest log file, read whole in 128 KiB blocks, one in flight.
    std::vector<sim::LogFileEntry> const files = device.logFiles();
    auto const biggest =
        std::max_element(files.begin(), files.end(), [](auto const& a, auto const& b) { return a.size < b.size; });
    if (biggest == files.end() || biggest->size == 0) fail("the simulated device has no log");
    Bytes const expected = device.logFile(biggest->id);
    Bytes received(expected.size());
    for (LinkClient* link : {&lan, &hub}) {
        std::fill(received.begin(), received.end(), 0);
        link->readLog(biggest->id, received);
        if (received != expected) fail("the log came over the link changed");
    }
    std::printf("\nlog sync: file %u, %zu bytes, in %zu-byte blocks, MB/s\n", biggest->id, expected.size(), kBlock);
    std::vector<double> const syncs =
        bestRates({
                      [](size_t count) { BlockingLoop(kBulkRequestSize, kBlock).run(count); },
                      [&](size_t count) {
                          for (size_t i = 0; i < count; ++i) lan.readLog(biggest->id, received);
                      },
                      [&](size_t count) {
                          for (size_t i = 0; i < count; ++i) hub.readLog(biggest->id, received);
                      },
                  },
                  seconds, rounds);
    double const raw = syncs[0] * kBlockMb;
    double const plainSync = syncs[1] * static_cast<double>(expected.size()) / 1e6;
    double const hubSync = syncs[2] * static_cast<double>(expected.size()) / 1e6;
    printRatio("LAN link", plainSync, "(c) 16 B -> 128 KiB loop", raw, "MB/s", plainSync / raw, ">= 0.5");
    printRatio("hub link", hubSync, "(c) 16 B -> 128 KiB loop", raw, "MB/s", hubSync / raw, ">= 0.35");

    std::printf("us per block: (c) %.1f, LAN link %.1f, hub link %.1f\n", kBlockMb / raw * 1e6,
                kBlockMb / plainSync * 1e6, kBlockMb / hubSync * 1e6);
    return 0;
}
