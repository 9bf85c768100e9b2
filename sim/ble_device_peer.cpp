#include "ble_device_peer.h"

#include <poll.h>

#include <algorithm>

#include "cobs.h"
#include "live_data_frame.h"
#include "simulated_device.h"
#include "zelmor_gatt.h"

namespace sim {

namespace {

constexpr uint16_t kGenericAccessService = 0x1800;
constexpr uint16_t kDeviceNameCharacteristic = 0x2A00;
constexpr char kForeignCharacteristic[] = "ec7c0003-2c7b-1539-172f-29d041beab3e";

// The longest wait for input; the schedules usually wake the thread sooner.
constexpr auto kLongestWait = std::chrono::milliseconds(100);

BleUUID uuid(char const* text) { return BleUUID::parse(text).value(); }

std::vector<uint8_t> textBytes(std::string const& text) { return std::vector<uint8_t>(text.begin(), text.end()); }

}  // namespace

BleDevicePeer::BleDevicePeer(int socket, SimulatedDevice& device, BlePeerOptions options)
    : device_(device), options_(options), server_(socket, options.mtu) {
    buildDatabase();
    session_ = device_.openSession(SessionMode::Plain,
                                   [this](uint8_t const* data, size_t length) { queueAnswer(data, length); });
    nextLiveData_ = Clock::now() + std::chrono::milliseconds(options_.liveDataIntervalMs);
    thread_ = std::thread([this] { run(); });
}

BleDevicePeer::~BleDevicePeer() { close(); }

void BleDevicePeer::buildDatabase() {
    using P = AttServer;
    server_.addService(BleUUID(kGenericAccessService));
    server_.addCharacteristic(BleUUID(kDeviceNameCharacteristic), P::kPropertyRead,
                              [this] { return textBytes(device_.snapshot().name); });
    server_.addService(uuid(kZelmorServiceUuid));
    liveDataHandle_ = server_.addCharacteristic(uuid(kZelmorLiveDataUuid), P::kPropertyNotify);
    commandHandle_ =
        server_.addCharacteristic(uuid(kZelmorCommandUuid), P::kPropertyWriteWithoutResponse | P::kPropertyNotify, {},
                                  [this](uint8_t const* data, size_t length) { takeCommand(data, length); });
    if (options_.extraCharacteristic) server_.addCharacteristic(uuid(kForeignCharacteristic), P::kPropertyRead);
}

void BleDevicePeer::close() {
    server_.close();
    std::lock_guard lock(joinMutex_);
    if (thread_.joinable()) thread_.join();
}

void BleDevicePeer::run() {
    pollfd link{server_.socket(), POLLIN, 0};
    for (;;) {
        Clock::time_point const now = Clock::now();
        sendLiveData(now);
        Clock::time_point const nextAnswer = sendAnswers(now);
        // A session that ended itself hangs the device up once its last answer is out.
        if (server_.closed() || (session_->closed() && answers_.empty())) break;
        Clock::time_point const wake = std::min({nextLiveData_, nextAnswer, now + kLongestWait});
        auto const wait = std::chrono::ceil<std::chrono::milliseconds>(std::max(wake - now, Clock::duration::zero()));
        link.revents = 0;
        if (::poll(&link, 1, static_cast<int>(wait.count())) < 0) continue;
        if (link.revents & POLLIN) {
            if (!server_.receive()) break;
        } else if (link.revents & (POLLHUP | POLLERR | POLLNVAL)) {
            break;
        }
    }
    server_.close();
    closed_.store(true);
}

void BleDevicePeer::takeCommand(uint8_t const* data, size_t length) {
    {
        std::lock_guard lock(writesMutex_);
        commandWriteSizes_.push_back(length);
    }
    if (device_.faults().settings().stalled) return;
    session_->receive(data, length);
}

std::vector<size_t> BleDevicePeer::commandWriteSizes() const {
    std::lock_guard lock(writesMutex_);
    return commandWriteSizes_;
}

void BleDevicePeer::queueAnswer(uint8_t const* data, size_t length) {
    Clock::time_point const due = Clock::now() + std::chrono::milliseconds(device_.faults().nextAnswerDelayMs());
    answers_.push_back(Answer{std::vector<uint8_t>(data, data + length), 0, due});
}

BleDevicePeer::Clock::time_point BleDevicePeer::sendAnswers(Clock::time_point now) {
    while (!answers_.empty() && !server_.closed()) {
        Answer& answer = answers_.front();
        // Answers keep their order: one held back holds back those behind it.
        if (answer.due > now) return answer.due;
        size_t piece = std::min<size_t>(answer.bytes.size() - answer.sent, server_.mtu() - 3u);
        if (uint64_t const rate = device_.faults().settings().bytesPerSecond; rate != 0) {
            Clock::time_point retryAt;
            piece = pacer_.allowance(rate, piece, now, retryAt);
            if (piece == 0) return retryAt;
        }
        // Without notifications enabled the piece is lost, as on the device.
        server_.notify(commandHandle_, answer.bytes.data() + answer.sent, piece);
        pacer_.spend(piece);
        answer.sent += piece;
        if (answer.sent == answer.bytes.size()) answers_.pop_front();
        now = Clock::now();
    }
    return Clock::time_point::max();
}

void BleDevicePeer::sendLiveData(Clock::time_point now) {
    if (now < nextLiveData_) return;
    // Records missed while the thread was busy are skipped, not sent in a burst.
    auto const interval = std::chrono::milliseconds(std::max<uint32_t>(options_.liveDataIntervalMs, 1));
    nextLiveData_ += interval * ((now - nextLiveData_) / interval + 1);
    if (!server_.notificationsEnabled(liveDataHandle_)) return;
    DeviceSnapshot const identity = device_.snapshot();
    std::vector<uint8_t> const frame =
        encodeLiveDataFrame(identity.firmwareVersion, identity.hardwareRevision, device_.readings());
    std::vector<uint8_t> encoded;
    cobsEncode(frame.data(), frame.size(), encoded);
    if (sendPieces(liveDataHandle_, encoded.data(), encoded.size())) liveFramesSent_.fetch_add(1);
}

bool BleDevicePeer::notify(uint16_t valueHandle, std::vector<uint8_t> const& bytes) {
    return sendPieces(valueHandle, bytes.data(), bytes.size());
}

bool BleDevicePeer::sendPieces(uint16_t valueHandle, uint8_t const* data, size_t length) {
    for (size_t at = 0; at < length;) {
        size_t const piece = std::min<size_t>(length - at, server_.mtu() - 3u);
        if (!server_.notify(valueHandle, data + at, piece)) return false;
        at += piece;
    }
    return true;
}

}  // namespace sim
