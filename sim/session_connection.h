#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "device_session.h"
#include "output_pacer.h"

namespace sim {

class SimulatedDevice;

/// How a connection finds the device that serves it. A device's own server
/// knows it at once; the hub relay reads the hello first and picks the device
/// whose channel it names.
struct SessionRoute {
    SessionMode mode = SessionMode::Plain;
    /// Bytes read before choosing; the session is given them too.
    size_t helloSize = 0;
    /// The device for these first bytes; null closes the connection. Called on
    /// the connection's reading thread.
    std::function<SimulatedDevice*(uint8_t const* hello, size_t length)> choose;
};

/// One TCP connection carrying one device session. A reading thread hands the
/// host's bytes to the session; the session's answers go out from the reading
/// thread itself while nothing is queued, held back or paced and the socket
/// takes them without waiting; everything else is queued and a writing thread
/// sends it, honouring the device's transport faults: answers held back
/// (answerDelayMs, delayFraction), output paced (bytesPerSecond), input lost
/// while stalled. Because the reading thread never waits to write, a host that
/// is slow to read cannot stop the device from taking in what it sends, so a
/// host that writes before it reads never deadlocks with it. Only when the
/// host leaves several megabytes unread does reading pause.
class SessionConnection {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr size_t kReadSize = 16384;
    static constexpr size_t kMaxQueuedBytes = 8u << 20;

    /// Takes the connected socket over and starts both threads.
    SessionConnection(int socket, SessionRoute route);
    SessionConnection(SessionConnection const&) = delete;
    SessionConnection& operator=(SessionConnection const&) = delete;
    /// Stops the connection and closes the socket.
    ~SessionConnection();

    /// Ends the connection at once, queued answers unsent, and joins both
    /// threads. Idempotent.
    void stop();
    /// True once both threads have ended by themselves: the host left, the
    /// session ended and its last bytes are out, or the link failed.
    bool finished() const;

private:
    struct Chunk {
        std::vector<uint8_t> bytes;
        Clock::time_point due;
        bool end = false;  // shut the sending side down here
    };

    void readLoop();
    bool openSession();
    bool waitForRoom();
    void deliver(uint8_t const* data, size_t length);
    void queue(uint8_t const* data, size_t length);
    void queueEnd();

    void writeLoop();
    bool send(std::vector<uint8_t> const& bytes);
    /// Waits until `time`; false when the connection is stopped meanwhile.
    bool sleepUntil(Clock::time_point time);

    int const socket_;
    SessionRoute const route_;
    // Set by the reading thread before the first chunk is queued; the writing
    // thread reads it only for chunks, so the queue's mutex orders the two.
    SimulatedDevice* device_ = nullptr;
    std::optional<uint64_t> linkWatch_;  // set with device_
    std::unique_ptr<DeviceSession> session_;
    OutputPacer pacer_;  // writing thread only

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Chunk> queue_;
    size_t queuedBytes_ = 0;
    bool endQueued_ = false;
    bool writing_ = false;  // the writing thread is sending a chunk it took
    bool stopping_ = false;
    bool readerDone_ = false;
    bool writerDone_ = false;

    std::thread reader_;
    std::thread writer_;
};

}  // namespace sim
