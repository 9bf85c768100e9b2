#include "session_connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "simulated_device.h"

namespace sim {

namespace {

ssize_t readSome(int socket, uint8_t* buffer, size_t size) {
    ssize_t got;
    do {
        got = ::read(socket, buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

}  // namespace

SessionConnection::SessionConnection(int socket, SessionRoute route)
    : socket_(socket), route_(std::move(route)), reader_([this] { readLoop(); }), writer_([this] { writeLoop(); }) {}

SessionConnection::~SessionConnection() {
    stop();
    if (linkWatch_) device_->unwatchLink(*linkWatch_);
    ::close(socket_);
}

void SessionConnection::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    // Wakes a thread blocked in read or send; the descriptor itself stays open
    // until both are joined, so neither can touch a number the system reused.
    ::shutdown(socket_, SHUT_RDWR);
    if (reader_.joinable()) reader_.join();
    if (writer_.joinable()) writer_.join();
}

bool SessionConnection::finished() const {
    std::lock_guard lock(mutex_);
    return readerDone_ && writerDone_;
}

void SessionConnection::readLoop() {
    if (openSession()) {
        std::vector<uint8_t> buffer(kReadSize);
        while (waitForRoom()) {
            ssize_t const got = readSome(socket_, buffer.data(), buffer.size());
            if (got <= 0) break;  // the host left, or the connection was shut down
            deliver(buffer.data(), static_cast<size_t>(got));
        }
    }
    // Whatever ended the reading, what the device has said so far still goes
    // out before the sending side closes.
    queueEnd();
    {
        std::lock_guard lock(mutex_);
        readerDone_ = true;
    }
    wake_.notify_all();
}

bool SessionConnection::openSession() {
    std::vector<uint8_t> hello(route_.helloSize);
    for (size_t have = 0; have < hello.size();) {
        // Only the hello: what follows belongs to the session.
        ssize_t const got = readSome(socket_, hello.data() + have, hello.size() - have);
        if (got <= 0) return false;
        have += static_cast<size_t>(got);
    }
    device_ = route_.choose(hello.data(), hello.size());
    if (device_ == nullptr) {
        ::shutdown(socket_, SHUT_RDWR);
        return false;
    }
    // A restart or a cut ends the link: the reading side shut, the device
    // takes in nothing more, and what it has said still goes out before the end.
    // A connection that has ended but is not yet reaped still has its watch.
    linkWatch_ = device_->watchLink([this] {
        bool const open = !finished();
        ::shutdown(socket_, SHUT_RD);
        return open;
    });
    session_ = device_->openSession(route_.mode, [this](uint8_t const* data, size_t length) { queue(data, length); });
    // The hello is taken in even by a stalled device: losing it would turn the
    // host's next frames into a wrong hello and end the session.
    if (!hello.empty()) session_->receive(hello.data(), hello.size());
    if (session_->closed()) queueEnd();
    return true;
}

bool SessionConnection::waitForRoom() {
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return queuedBytes_ < kMaxQueuedBytes || stopping_ || writerDone_; });
    return !stopping_ && !writerDone_;
}

void SessionConnection::deliver(uint8_t const* data, size_t length) {
    // After the device has hung up, or while it is stalled, the host's bytes
    // go nowhere; reading on keeps the host from blocking on a full buffer.
    if (session_->closed() || device_->faults().settings().stalled) return;
    session_->receive(data, length);
    if (session_->closed()) queueEnd();
}

void SessionConnection::queue(uint8_t const* data, size_t length) {
    uint32_t const delayMs = device_->faults().nextAnswerDelayMs();
    bool direct = delayMs == 0 && device_->faults().settings().bytesPerSecond == 0;
    if (direct) {
        std::lock_guard lock(mutex_);
        direct = queue_.empty() && !writing_ && !stopping_;
    }
    // With nothing queued or being sent, only this thread can add bytes, so
    // they may go out from here: a hand-off to the writing thread costs a
    // wake-up per answer. The send never waits; what the socket does not take
    // now is queued for the writing thread.
    if (direct) {
        ssize_t sent;
        do {
            sent = ::send(socket_, data, length, MSG_NOSIGNAL | MSG_DONTWAIT);
        } while (sent < 0 && errno == EINTR);
        if (sent > 0) {
            data += sent;
            length -= static_cast<size_t>(sent);
        }
        if (length == 0) return;
    }
    Clock::time_point const due = Clock::now() + std::chrono::milliseconds(delayMs);
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(Chunk{std::vector<uint8_t>(data, data + length), due});
        queuedBytes_ += length;
    }
    wake_.notify_all();
}

void SessionConnection::queueEnd() {
    {
        std::lock_guard lock(mutex_);
        if (endQueued_) return;
        endQueued_ = true;
        queue_.push_back(Chunk{{}, Clock::now(), true});
    }
    wake_.notify_all();
}

void SessionConnection::writeLoop() {
    for (;;) {
        Chunk chunk;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
            // Chunks keep their order: one held back holds back those behind it.
            Clock::time_point const due = stopping_ ? Clock::now() : queue_.front().due;
            // A wait that is already due still sleeps until a timer fires:
            // wait only for chunks that are really held back.
            if (stopping_ || (due > Clock::now() && wake_.wait_until(lock, due, [this] { return stopping_; }))) break;
            chunk = std::move(queue_.front());
            queue_.pop_front();
            writing_ = true;
        }
        if (chunk.end) {
            ::shutdown(socket_, SHUT_WR);
            break;
        }
        bool const sent = send(chunk.bytes);
        {
            std::lock_guard lock(mutex_);
            queuedBytes_ -= chunk.bytes.size();
            writing_ = false;
        }
        wake_.notify_all();
        if (!sent) {
            // The host is gone or the link broke: the reading side ends too.
            ::shutdown(socket_, SHUT_RDWR);
            break;
        }
    }
    {
        std::lock_guard lock(mutex_);
        writerDone_ = true;
    }
    wake_.notify_all();
}

bool SessionConnection::send(std::vector<uint8_t> const& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        size_t piece = bytes.size() - sent;
        if (uint64_t const rate = device_->faults().settings().bytesPerSecond; rate != 0) {
            Clock::time_point retryAt;
            piece = pacer_.allowance(rate, piece, Clock::now(), retryAt);
            if (piece == 0) {
                if (!sleepUntil(retryAt)) return false;
                continue;
            }
        }
        ssize_t const written = ::send(socket_, bytes.data() + sent, piece, MSG_NOSIGNAL);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        pacer_.spend(static_cast<size_t>(written));
        sent += static_cast<size_t>(written);
    }
    return true;
}

bool SessionConnection::sleepUntil(Clock::time_point time) {
    std::unique_lock lock(mutex_);
    return !wake_.wait_until(lock, time, [this] { return stopping_; });
}

}  // namespace sim
