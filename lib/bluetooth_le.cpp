#include "bluetooth_le.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>

#include "att_protocol.h"
#include "byte_io.h"

using namespace att;

namespace {

constexpr size_t kErrorResponseLength = 5;
constexpr size_t kAddressFields = 6;

// The client whose connection thread this is, if any. Such a thread never
// waits for a link to end: it may be the one that has to end it.
thread_local BluetoothLE const* connectionThreadOf = nullptr;

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Fields sit at every third character; the character between them is not
// looked at. A field followed by a third digit is not a field.
uint64_t parseAddress(std::string const& text) {
    uint64_t address = 0;
    for (size_t field = 0; field < kAddressFields; ++field) {
        size_t const at = field * 3;
        if (at + 2 > text.size()) break;
        int const high = hexDigit(text[at]);
        int const low = hexDigit(text[at + 1]);
        if (high < 0 || low < 0 || (at + 2 < text.size() && hexDigit(text[at + 2]) >= 0)) break;
        address = address << 8 | static_cast<uint64_t>(high << 4 | low);
    }
    return address;
}

// Waits for room in the socket's send buffer; a stall as long as
// kWriteStallMs means the peer no longer takes anything.
bool waitForRoom(int socket) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(BluetoothLE::kWriteStallMs);
    for (;;) {
        auto const left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd ready{socket, POLLOUT, 0};
        int const result = ::poll(&ready, 1, static_cast<int>(std::max<long>(left.count(), 0)));
        if (result > 0) return (ready.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
        if (result == 0 || errno != EINTR) return false;
    }
}

bool writeAll(int socket, uint8_t const* data, size_t length) {
    while (length > 0) {
        ssize_t const written = ::send(socket, data, length, MSG_NOSIGNAL);
        if (written >= 0) {
            data += written;
            length -= static_cast<size_t>(written);
        } else if (errno != EINTR && ((errno != EAGAIN && errno != EWOULDBLOCK) || !waitForRoom(socket))) {
            return false;
        }
    }
    return true;
}

// The device's MTU capped at ours. A value below the protocol's minimum of 23
// (a device that offers 3 or less) would leave no room for a single byte of a
// write command; every link carries 23 bytes, so that is what is used.
uint16_t usableMtu(uint16_t offered) { return std::clamp(offered, BluetoothLE::kDefaultMtu, BluetoothLE::kMaxMtu); }

// A read of 0 bytes is either a zero-length PDU or the peer's close.
bool peerClosed(int socket) {
    pollfd ready{socket, POLLIN, 0};
    return ::poll(&ready, 1, 0) > 0 && (ready.revents & POLLHUP) != 0;
}

}  // namespace

BluetoothLE::BluetoothLE(BluetoothHost& host) : host_(host) {}

BluetoothLE::~BluetoothLE() {
    disconnect();
    std::thread last;
    {
        std::unique_lock lock(threadMutex_);
        // Threads left to return from their disconnected callback still
        // touch this object on their way out.
        threadEnded_.wait(lock, [this] { return liveThreads_ == 0; });
        last = std::move(thread_);
    }
    if (last.joinable()) last.join();
    if (adapter_ >= 0) host_.closeAdapter(adapter_);
}

bool BluetoothLE::openAdapter() {
    if (adapter_ < 0) adapter_ = host_.openAdapter();
    return adapter_ >= 0;
}

void BluetoothLE::connect(uint64_t address, bool publicAddress) {
    State idle = State::Disconnected;
    if (!state_.compare_exchange_strong(idle, State::Connecting)) throw Exception(kInvalidState);
    std::thread previous;
    {
        std::lock_guard lock(threadMutex_);
        previous = std::move(thread_);
    }
    // A disconnected state means the previous thread has nothing left but
    // its disconnected callback; called from there, it is this thread.
    if (previous.joinable()) {
        if (previous.get_id() == std::this_thread::get_id()) {
            previous.detach();
        } else {
            previous.join();
        }
    }
    address_ = address;
    publicAddress_ = publicAddress;
    std::lock_guard lock(threadMutex_);
    reason_ = DisconnectReason::LinkLost;
    running_ = true;
    ++liveThreads_;
    uint64_t const link = ++linksStarted_;
    thread_ = std::thread([this, link] { run(link); });
}

void BluetoothLE::connect(std::string const& address, bool publicAddress) {
    connect(parseAddress(address), publicAddress);
}

void BluetoothLE::disconnect() { endLink(DisconnectReason::ClosedLocally, true); }

int8_t BluetoothLE::getRssi() {
    requireConnected();
    int8_t rssi = 0;
    if (!host_.readRssi(adapter_, hciHandle_, rssi)) throw Exception(kRssiError);
    return rssi;
}

void BluetoothLE::exchangeMtu(unsigned mtu, Done done) {
    Request request;
    ByteWriter(request.pdu)
        .write<uint8_t>(kExchangeMtuRequest)
        .write<uint16_t>(static_cast<uint16_t>(std::min<unsigned>(mtu, UINT16_MAX)));
    request.onDone = std::move(done);
    enqueue({std::move(request)});
}

void BluetoothLE::setConnectedCallback(std::function<void()> callback) {
    std::lock_guard lock(callbackMutex_);
    connected_ = std::move(callback);
}

void BluetoothLE::setDisconnectedCallback(std::function<void(DisconnectReason)> callback) {
    std::lock_guard lock(callbackMutex_);
    disconnected_ = std::move(callback);
}

void BluetoothLE::run(uint64_t link) {
    connectionThreadOf = this;
    int const socket = host_.openAttSocket();
    int const epoll = socket < 0 ? -1 : ::epoll_create1(EPOLL_CLOEXEC);
    if (epoll >= 0) {
        epoll_event interest{};
        interest.events = EPOLLIN | EPOLLOUT | EPOLLET;
        if (::epoll_ctl(epoll, EPOLL_CTL_ADD, socket, &interest) == 0 && startConnecting(socket)) serve(socket, epoll);
    }
    closeLink(socket, epoll);
    finish(link);
}

bool BluetoothLE::startConnecting(int socket) {
    {
        std::lock_guard lock(socketMutex_);
        socket_ = socket;
    }
    mtu_ = kDefaultMtu;
    int const result = host_.connectAttSocket(socket, address_, publicAddress_);
    if (result == 0) return becomeConnected(socket);
    return result == EINPROGRESS;
}

bool BluetoothLE::becomeConnected(int socket) {
    uint16_t handle = 0;
    if (!host_.connectionHandle(socket, handle)) return false;
    hciHandle_ = handle;
    {
        std::lock_guard lock(mutex_);
        queue_.clear();
        answering_ = false;
        linkUp_ = true;
    }
    state_ = State::Connected;
    std::function<void()> connected;
    {
        std::lock_guard lock(callbackMutex_);
        connected = connected_;
    }
    if (connected) connected();
    return true;
}

void BluetoothLE::serve(int socket, int epoll) {
    while (running_) {
        epoll_event event{};
        int const ready = ::epoll_wait(epoll, &event, 1, kEpollWaitMs);
        if (ready > 0) {
            handleEvent(socket, event.events);
        } else if (ready < 0 && errno != EINTR) {
            fail(DisconnectReason::LinkLost);
        }
    }
}

// Edge-triggered: one event may report the connection, input and the
// hang-up together, and none of them comes again. A hang-up before the link
// came up is a failed attempt; input that arrived with it is still read.
void BluetoothLE::handleEvent(int socket, uint32_t events) {
    bool const broken = (events & (EPOLLERR | EPOLLHUP)) != 0;
    bool readable = (events & EPOLLIN) != 0;
    if (state_ == State::Connecting && !broken && (events & EPOLLOUT) != 0) {
        if (!becomeConnected(socket)) {
            fail(DisconnectReason::LinkLost);
            return;
        }
        readable = true;
    }
    if (state_ == State::Connected && readable) receive(socket);
    if (broken) fail(DisconnectReason::LinkLost);
}

void BluetoothLE::receive(int socket) {
    while (running_) {
        ssize_t const received = ::recv(socket, buffer_.data(), buffer_.size(), 0);
        if (received > 0) {
            dispatch(buffer_.data(), std::min(static_cast<size_t>(received), buffer_.size()));
        } else if (received == 0) {
            if (peerClosed(socket)) fail(DisconnectReason::LinkLost);
        } else if (errno != EINTR) {
            if (errno != EAGAIN && errno != EWOULDBLOCK) fail(DisconnectReason::LinkLost);
            return;
        }
    }
}

void BluetoothLE::closeLink(int socket, int epoll) {
    {
        std::lock_guard lock(socketMutex_);
        socket_ = -1;
    }
    if (socket >= 0) ::close(socket);
    if (epoll >= 0) ::close(epoll);
    std::deque<Request> dropped;
    {
        std::lock_guard lock(mutex_);
        linkUp_ = false;
        dropped.swap(queue_);
    }
}

void BluetoothLE::finish(uint64_t link) {
    DisconnectReason reason;
    {
        std::lock_guard lock(threadMutex_);
        running_ = false;
        if (state_ == State::Connecting) reason_ = DisconnectReason::NeverConnected;
        reason = reason_;
    }
    std::function<void(DisconnectReason)> disconnected;
    {
        std::lock_guard lock(callbackMutex_);
        disconnected = disconnected_;
    }
    state_ = State::Disconnected;
    if (disconnected) disconnected(reason);
    std::lock_guard lock(threadMutex_);
    lastEndedLink_ = std::max(lastEndedLink_, link);
    --liveThreads_;
    // Under the mutex: once a waiter sees the count, this thread no longer
    // touches the condition variable.
    threadEnded_.notify_all();
}

// The first reason wins: a stalled write's reason is not replaced by the
// hang-up that follows it.
void BluetoothLE::endLink(DisconnectReason reason, bool waitWhenEnding) {
    std::unique_lock lock(threadMutex_);
    if (running_) {
        reason_ = reason;
        running_ = false;
    } else if (!waitWhenEnding) {
        return;
    }
    if (connectionThreadOf == this) return;
    uint64_t const link = linksStarted_;
    threadEnded_.wait(lock, [this, link] { return lastEndedLink_ >= link; });
}

void BluetoothLE::requireConnected() const {
    if (state_ != State::Connected) throw Exception(kInvalidState);
}

void BluetoothLE::enqueue(std::vector<Request> requests) {
    {
        std::lock_guard lock(mutex_);
        if (!linkUp_) throw Exception(kInvalidState);
        std::move(requests.begin(), requests.end(), std::back_inserter(queue_));
    }
    sendFront();
}

void BluetoothLE::pushFront(Request request) {
    std::lock_guard lock(mutex_);
    if (linkUp_) queue_.push_front(std::move(request));
}

void BluetoothLE::sendFront() {
    std::vector<uint8_t> pdu;
    {
        std::lock_guard lock(mutex_);
        // While an answer's handler runs, only the handler itself sends: what it
        // queues goes out now (a discovery's caller enabling notifications
        // before the link is reported up), what other threads queue waits.
        if ((answering_ && connectionThreadOf != this) || queue_.empty() || queue_.front().sent) return;
        queue_.front().sent = true;
        pdu = queue_.front().pdu;
    }
    send(pdu);
}

void BluetoothLE::send(std::vector<uint8_t> const& pdu) {
    {
        std::lock_guard lock(socketMutex_);
        if (socket_ < 0 || writeAll(socket_, pdu.data(), pdu.size())) return;
    }
    fail(DisconnectReason::WriteFailed);
}

void BluetoothLE::dispatch(uint8_t const* pdu, size_t length) {
    struct Route {
        uint8_t opcode;
        void (BluetoothLE::*handle)(uint8_t const*, size_t);
    };
    static constexpr Route kRoutes[] = {
        {kExchangeMtuRequest, &BluetoothLE::onMtuRequest},
        {kHandleValueNotification, &BluetoothLE::onNotification},
        {kHandleValueIndication, &BluetoothLE::onIndication},
        {kMultipleHandleValueNotification, &BluetoothLE::onMultipleNotification},
    };
    uint8_t const opcode = pdu[0] & kOpcodeMask;
    auto const route =
        std::find_if(std::begin(kRoutes), std::end(kRoutes), [opcode](Route const& r) { return r.opcode == opcode; });
    (this->*(route == std::end(kRoutes) ? &BluetoothLE::onAnswer : route->handle))(pdu, length);
}

// The device's MTU, capped at ours, whatever we asked for ourselves.
void BluetoothLE::onMtuRequest(uint8_t const* pdu, size_t length) {
    if (length != 3) {
        fail(DisconnectReason::ErrorResponse);
        return;
    }
    mtu_ = usableMtu(readLe<uint16_t>(pdu + 1));
    std::vector<uint8_t> answer;
    ByteWriter(answer).write<uint8_t>(kExchangeMtuResponse).write<uint16_t>(kMaxMtu);
    send(answer);
}

void BluetoothLE::onNotification(uint8_t const* pdu, size_t length) {
    if (length < 3) {
        fail(DisconnectReason::ProtocolViolation);
        return;
    }
    deliver(readLe<uint16_t>(pdu + 1), pdu + 3, length - 3);
}

void BluetoothLE::onIndication(uint8_t const* pdu, size_t length) {
    if (length < 3) {
        fail(DisconnectReason::ProtocolViolation);
        return;
    }
    send({kHandleValueConfirmation});
    deliver(readLe<uint16_t>(pdu + 1), pdu + 3, length - 3);
}

void BluetoothLE::onMultipleNotification(uint8_t const* pdu, size_t length) {
    ByteReader entries(pdu + 1, length - 1);
    while (running_ && entries.remaining() >= 2 * sizeof(uint16_t)) {
        uint16_t const handle = entries.read<uint16_t>();
        uint16_t const size = entries.read<uint16_t>();
        if (size > entries.remaining()) return;
        deliver(handle, pdu + 1 + entries.position(), size);
        entries.skip(size);
    }
}

void BluetoothLE::deliver(uint16_t valueHandle, uint8_t const* value, size_t length) {
    for (Service& service : services_) {
        for (Characteristic& characteristic : service.characteristics) {
            if (characteristic.valueHandle != valueHandle) continue;
            if (characteristic.handler) characteristic.handler(value, length);
            return;
        }
    }
}

void BluetoothLE::onAnswer(uint8_t const* pdu, size_t length) {
    struct Route {
        uint8_t request;
        void (BluetoothLE::*handle)(Request&, uint8_t const*, size_t);
    };
    static constexpr Route kRoutes[] = {
        {kExchangeMtuRequest, &BluetoothLE::onMtuAnswer},
        {kReadByTypeRequest, &BluetoothLE::onDiscoveryAnswer},
        {kReadRequest, &BluetoothLE::onReadAnswer},
        {kReadBlobRequest, &BluetoothLE::onReadAnswer},
        {kReadByGroupTypeRequest, &BluetoothLE::onDiscoveryAnswer},
        {kWriteRequest, &BluetoothLE::onWriteAnswer},
        {kPrepareWriteRequest, &BluetoothLE::onWriteAnswer},
        {kExecuteWriteRequest, &BluetoothLE::onWriteAnswer},
    };
    // The answered request leaves the queue, but the link counts as busy for
    // other threads until its handler has run: a continuation it puts at the
    // front must go out before a request another thread queued meanwhile. A
    // handler queues anything of its own only once it has no continuation.
    Request request;
    {
        std::lock_guard lock(mutex_);
        if (!queue_.empty() && queue_.front().sent) {
            request = std::move(queue_.front());
            queue_.pop_front();
            answering_ = true;
        }
    }
    // Answers carry neither the command nor the signature flag: a PDU with
    // either is no answer, however its low bits read.
    uint8_t const opcode = pdu[0];
    uint8_t const requested = request.pdu.empty() ? 0 : request.pdu[0];
    auto const route = std::find_if(std::begin(kRoutes), std::end(kRoutes),
                                    [requested](Route const& r) { return r.request == requested; });
    bool const answers =
        opcode == kErrorResponse ? length >= kErrorResponseLength && pdu[1] == requested : opcode == requested + 1;
    if (route == std::end(kRoutes) || !answers) {
        fail(DisconnectReason::ProtocolViolation);
        return;
    }
    (this->*route->handle)(request, pdu, length);
    {
        std::lock_guard lock(mutex_);
        answering_ = false;
    }
    if (running_) sendFront();
}

void BluetoothLE::onMtuAnswer(Request& request, uint8_t const* pdu, size_t length) {
    if (pdu[0] == kErrorResponse) {
        fail(DisconnectReason::ErrorResponse);
    } else if (length < 3) {
        fail(DisconnectReason::ProtocolViolation);
    } else {
        mtu_ = usableMtu(readLe<uint16_t>(pdu + 1));
        if (request.onDone) request.onDone();
    }
}

// An answer that fills the MTU may have more of the value behind it: Read
// Blob continues one past what came, ahead of anything queued later.
void BluetoothLE::onReadAnswer(Request& request, uint8_t const* pdu, size_t length) {
    if (pdu[0] == kErrorResponse) {
        fail(DisconnectReason::ErrorResponse);
        return;
    }
    if (request.onData) request.onData(pdu + 1, length - 1);
    if (length < mtu_) {
        if (request.onComplete) request.onComplete();
        return;
    }
    uint16_t const handle = readLe<uint16_t>(request.pdu.data() + 1);
    uint16_t const offset = request.pdu[0] == kReadBlobRequest ? readLe<uint16_t>(request.pdu.data() + 3) : 0;
    Request next;
    ByteWriter(next.pdu)
        .write<uint8_t>(kReadBlobRequest)
        .write<uint16_t>(handle)
        .write<uint16_t>(static_cast<uint16_t>(offset + length - 1));
    next.onData = std::move(request.onData);
    next.onComplete = std::move(request.onComplete);
    pushFront(std::move(next));
}

void BluetoothLE::onWriteAnswer(Request& request, uint8_t const* pdu, size_t) {
    if (pdu[0] == kErrorResponse) {
        fail(DisconnectReason::ErrorResponse);
    } else if (request.onDone) {
        request.onDone();
    }
}
