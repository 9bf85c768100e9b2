#include "zelmor_request.h"

#include <chrono>
#include <cstring>

#include "command_codes.h"
#include "frame_codec.h"
#include "random_bytes.h"
#include "records.h"
#include "sealed_block.h"

namespace {

using Clock = std::chrono::steady_clock;

// How long the idle worker sleeps before it looks at the running flag again.
constexpr auto kQueuePoll = std::chrono::milliseconds(50);

// The longest COBS body the receive path accepts: an encrypted frame with the
// largest payload the length field can describe.
constexpr size_t kMaxEncodedBody =
    encryptedFrameSize(kMaxFramePayload) + encryptedFrameSize(kMaxFramePayload) / 254 + 1;

}  // namespace

ZelmorRequest::ZelmorRequest() : decoder_(kMaxEncodedBody) { authCipher_.init(kSharedAuthenticationKey); }

ZelmorRequest::~ZelmorRequest() {
    stopThread();
    joinThread();
}

bool ZelmorRequest::isDirectConnection() const { return !remoteLink_; }

void ZelmorRequest::setConnectedCallback(ConnectedCallback callback) {
    std::lock_guard lock(callbackMutex_);
    connectedCallback_ = std::move(callback);
}

void ZelmorRequest::setDisconnectCallback(DisconnectCallback callback) {
    std::lock_guard lock(callbackMutex_);
    disconnectCallback_ = std::move(callback);
}

void ZelmorRequest::setMonitorDataCallback(MonitorDataCallback callback) {
    std::lock_guard lock(callbackMutex_);
    monitorDataCallback_ = std::move(callback);
}

void ZelmorRequest::setScanResultHandler(ScanResultHandler handler) {
    std::lock_guard lock(callbackMutex_);
    scanResultHandler_ = std::move(handler);
}

Zelmor::DeviceInfo ZelmorRequest::getDeviceInfo() const {
    std::lock_guard lock(infoMutex_);
    return deviceInfo_;
}

// Callbacks are copied out under the lock and called without it, so that a
// callback may replace callbacks or queue requests.
void ZelmorRequest::notifyConnected() {
    ConnectedCallback callback;
    {
        std::lock_guard lock(callbackMutex_);
        callback = connectedCallback_;
    }
    if (callback) callback();
}

void ZelmorRequest::notifyDisconnected(DisconnectReason reason) {
    DisconnectCallback callback;
    {
        std::lock_guard lock(callbackMutex_);
        callback = disconnectCallback_;
    }
    if (callback) callback(reason);
}

void ZelmorRequest::notifyMonitorData(MonitorData const& data) {
    MonitorDataCallback callback;
    {
        std::lock_guard lock(callbackMutex_);
        callback = monitorDataCallback_;
    }
    if (callback) callback(data);
}

bool ZelmorRequest::hasMonitorDataCallback() const {
    std::lock_guard lock(callbackMutex_);
    return static_cast<bool>(monitorDataCallback_);
}

void ZelmorRequest::enqueue(uint16_t command, std::vector<uint8_t> payload, uint32_t timeoutMs,
                            ResponseHandler handler) {
    {
        std::lock_guard lock(queueMutex_);
        RequestItem& item = queue_.emplace_back();
        item.command = command;
        item.payload = std::move(payload);
        item.timeoutMs = timeoutMs;
        item.handler = std::move(handler);
    }
    queueCondition_.notify_one();
}

void ZelmorRequest::startThread() {
    joinThread();
    encryptionOn_ = false;
    decoder_.reset();
    {
        std::lock_guard lock(accumulationMutex_);
        accumulation_.clear();
        discardingAnswer_ = false;
    }
    {
        std::lock_guard lock(answerMutex_);
        answers_.clear();
    }
    running_ = true;
    worker_ = std::thread([this] { workerLoop(); });
}

void ZelmorRequest::stopThread() {
    running_ = false;
    // Take each mutex once so that a waiter between its predicate check and its
    // wait cannot miss the notification.
    { std::lock_guard lock(queueMutex_); }
    queueCondition_.notify_all();
    { std::lock_guard lock(answerMutex_); }
    answerCondition_.notify_all();
}

void ZelmorRequest::joinThread() {
    if (worker_.joinable() && worker_.get_id() != std::this_thread::get_id()) worker_.join();
}

void ZelmorRequest::workerLoop() {
    std::vector<uint8_t> encoded;
    while (running_) {
        uint16_t command;
        uint16_t sequence;
        std::vector<uint8_t> payload;
        uint32_t timeoutMs;
        ResponseHandler handler;
        {
            std::unique_lock lock(queueMutex_);
            if (!queueCondition_.wait_until(lock, Clock::now() + kQueuePoll,
                                            [this] { return !queue_.empty() || !running_; }))
                continue;
            if (!running_) break;
            RequestItem& item = queue_.front();
            ++sendCounter_;
            item.sequence = static_cast<uint16_t>(sendCounter_);
            item.inFlight = true;
            command = item.command;
            sequence = item.sequence;
            payload = item.payload;
            timeoutMs = item.timeoutMs;
            handler = item.handler;
        }

        encoded.clear();
        encodeFrame({command, sequence, static_cast<uint16_t>(payload.size())}, payload.data(),
                    encryptionOn_ ? &encryptCipher_ : nullptr, encoded);
        {
            // A partial answer left by an earlier request must not be taken for this one's.
            std::lock_guard lock(accumulationMutex_);
            accumulation_.clear();
            discardingAnswer_ = false;
        }
        sendData(encoded.data(), encoded.size());

        std::optional<Answer> answer;
        {
            std::unique_lock lock(answerMutex_);
            auto const deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
            answerCondition_.wait_until(lock, deadline, [&] {
                // An answer that completed just after its request timed out
                // belongs to no one any more.
                while (!answers_.empty() && answers_.front().sequence != sequence) answers_.pop_front();
                return !answers_.empty() || !running_;
            });
            if (!answers_.empty()) {
                answer = std::move(answers_.front());
                answers_.pop_front();
            }
        }
        {
            std::lock_guard lock(queueMutex_);
            queue_.pop_front();
        }
        if (answer)
            handler(answer->code, answer->payload.empty() ? nullptr : answer->payload.data(), answer->payload.size());
        else
            handler(ResponseCode::RequestTimeout, nullptr, 0);
    }
    failPending();
}

void ZelmorRequest::failPending() {
    // Only what is queued now: a request that a failing handler queues anew
    // waits for the next link instead of failing in an endless round.
    std::deque<RequestItem> pending;
    {
        std::lock_guard lock(queueMutex_);
        pending.swap(queue_);
    }
    for (auto& item : pending) item.handler(ResponseCode::RequestTimeout, nullptr, 0);
}

void ZelmorRequest::receiveBytes(uint8_t const* data, size_t length) {
    decoder_.feed(data, length, [this](uint8_t* frame, size_t n) { receiveFrame(frame, n); });
}

void ZelmorRequest::receiveFrame(uint8_t* frame, size_t length) {
    auto const header = decodeFrame(frame, length, encryptionOn_ ? &decryptCipher_ : nullptr);
    if (!header) return;
    uint8_t const* payload = frame + kFrameHeaderSize;

    /* A notification is not an answer: it goes to the scan-result handler, if any. */
    if (header->code == kNotificationCode) {
        ScanResultHandler handler;
        {
            std::lock_guard lock(callbackMutex_);
            handler = scanResultHandler_;
        }
        if (!handler) return;
        if (header->length == kWifiScanResultSize) {
            WifiScanResult result;
            std::memcpy(&result, payload, sizeof result);
            handler(&result);
        } else {
            handler(nullptr);
        }
        return;
    }

    /* Only the request in flight can be answered; anything else is dropped. */
    std::lock_guard queueLock(queueMutex_);
    if (queue_.empty() || !queue_.front().inFlight || queue_.front().sequence != header->sequence) return;

    Answer answer;
    {
        std::lock_guard lock(accumulationMutex_);
        if (discardingAnswer_) return;
        /* An answer that outgrows any real one is dropped whole; its request times out. */
        if (accumulation_.size() + header->length > kMaxAnswerSize) {
            accumulation_.clear();
            discardingAnswer_ = true;
            return;
        }
        accumulation_.insert(accumulation_.end(), payload, payload + header->length);
        if (header->code == kContinuationCode) return;
        answer.sequence = header->sequence;
        answer.code = static_cast<ResponseCode>(header->code);
        size_t const lastSize = accumulation_.size();
        answer.payload = std::move(accumulation_);
        accumulation_.clear();
        // The next answer is likely as long (log blocks): grow once, not per frame.
        accumulation_.reserve(lastSize);
    }
    {
        std::lock_guard lock(answerMutex_);
        answers_.push_back(std::move(answer));
    }
    answerCondition_.notify_one();
}

void ZelmorRequest::startLinkEncryption(WifiAccessKey const& accessKey) {
    encryptCipher_.init(accessKey.key);
    decryptCipher_.init(accessKey.key);
    // The encryption IV is random and never sent; the device's chain falls in
    // step after the first (garbled) frame. The decryption IV starts at zero:
    // the device's first answer is garbled likewise and dropped.
    Aes256Cbc::Iv iv{};
    fillRandom(iv.data(), iv.size());
    encryptCipher_.setIv(iv.data());
    decryptCipher_.setIv(nullptr);

    uint8_t hello[1 + 16];
    hello[0] = 0x02;
    std::memcpy(hello + 1, accessKey.keyId.data(), accessKey.keyId.size());
    sendData(hello, sizeof hello);

    encryptionOn_ = true;
    // Throwaway frames push the garbled first blocks through before any real command.
    for (int i = 0; i < 3; ++i)
        enqueue(command::kThrowaway, {}, kThrowawayTimeoutMs, [](ResponseCode, uint8_t const*, size_t) {});
}
