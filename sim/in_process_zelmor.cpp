#include "in_process_zelmor.h"

#include "device_session.h"
#include "simulated_device.h"

InProcessZelmor::InProcessZelmor(sim::SimulatedDevice& device) : device_(device) {}

InProcessZelmor::~InProcessZelmor() {
    disconnect();
    stopThread();
    joinThread();
}

void InProcessZelmor::connectHub(WifiAccessKey const& accessKey) { connect(true, accessKey); }

void InProcessZelmor::connectLan(unsigned int) { connect(false, {}); }

void InProcessZelmor::connectBle(unsigned long) { connect(false, {}); }

void InProcessZelmor::connect(bool hub, WifiAccessKey const& accessKey) {
    // A link that ended by itself leaves its thread to be joined here.
    if (link_.joinable()) link_.join();
    {
        std::lock_guard lock(inboxMutex_);
        inbox_.clear();
        linkRunning_ = true;
        sessionClosed_ = false;
    }
    link_ = std::thread([this, hub, accessKey] { linkLoop(hub, accessKey); });
}

void InProcessZelmor::disconnect() {
    {
        std::lock_guard lock(inboxMutex_);
        linkRunning_ = false;
    }
    inboxCondition_.notify_all();
    if (link_.joinable() && link_.get_id() != std::this_thread::get_id()) link_.join();
}

void InProcessZelmor::sendData(uint8_t const* data, unsigned long length) {
    bool closed = false;
    {
        std::lock_guard lock(sessionMutex_);
        if (!session_) return;
        session_->receive(data, length);
        closed = session_->closed();
    }
    if (closed) {
        {
            std::lock_guard lock(inboxMutex_);
            sessionClosed_ = true;
        }
        inboxCondition_.notify_all();
    }
}

void InProcessZelmor::injectFromDevice(std::vector<uint8_t> bytes) {
    {
        std::lock_guard lock(inboxMutex_);
        inbox_.push_back(std::move(bytes));
    }
    inboxCondition_.notify_all();
}

void InProcessZelmor::linkLoop(bool hub, WifiAccessKey accessKey) {
    {
        std::lock_guard lock(sessionMutex_);
        session_ = device_.openSession(hub ? sim::SessionMode::Hub : sim::SessionMode::Plain,
                                       [this](uint8_t const* data, size_t length) {
                                           injectFromDevice(std::vector<uint8_t>(data, data + length));
                                       });
    }
    startThread();
    setRemoteLink(hub);
    if (hub) startLinkEncryption(accessKey);
    notifyConnected();

    DisconnectReason reason = DisconnectReason::ConnectionLost;
    for (;;) {
        std::vector<uint8_t> bytes;
        {
            std::unique_lock lock(inboxMutex_);
            inboxCondition_.wait(lock, [this] { return !inbox_.empty() || !linkRunning_ || sessionClosed_; });
            if (!linkRunning_) {
                reason = DisconnectReason::ClosedLocally;
                break;
            }
            if (inbox_.empty()) break;  // the device closed the link and everything it sent is delivered
            bytes = std::move(inbox_.front());
            inbox_.pop_front();
        }
        receiveBytes(bytes.data(), bytes.size());
    }

    {
        std::lock_guard lock(sessionMutex_);
        session_.reset();
    }
    stopThread();
    notifyDisconnected(reason);
}
