// The application's own device connection, ZelmorImpl, pointed at a served
// simulated device, with requests that wait for their answers.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "callback_result.h"
#include "loopback_listener.h"
#include "zelmor_impl.h"

class SimLink {
public:
    using Code = Zelmor::ResponseCode;
    using Reason = Zelmor::DisconnectReason;

    explicit SimLink(std::string hubHost = "127.0.0.1") : zelmor_(std::move(hubHost)) {
        zelmor_.setConnectedCallback([this] { update([this] { connected_ = true; }); });
        zelmor_.setDisconnectCallback([this](Reason reason) { update([this, reason] { ended_ = reason; }); });
    }

    /// True once the link is up; false when it ended first.
    bool connectLan(char const* address) {
        zelmor_.connectLan(loopbackAddress(address));
        return waitForConnection();
    }
    bool connectHub(Zelmor::WifiAccessKey const& key) {
        zelmor_.connectHub(key);
        return waitForConnection();
    }

    /// How the link ended; waits up to 60 s for it to end.
    std::optional<Reason> waitForEnd() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(60), [this] { return ended_.has_value(); });
        return ended_;
    }
    bool ended() {
        std::lock_guard lock(mutex_);
        return ended_.has_value();
    }

    std::tuple<Code, Zelmor::DeviceInfo> info() {
        CallbackResult<Code, Zelmor::DeviceInfo const&> result;
        zelmor_.requestGetInfo(result.callback());
        return result.get();
    }
    std::tuple<Code, Zelmor::MonitorData> monitor() {
        CallbackResult<Code, Zelmor::MonitorData const&> result;
        zelmor_.requestGetMonitorData(result.callback());
        return result.get();
    }
    std::tuple<Code, std::vector<uint8_t>> readLog(uint32_t fileId, uint32_t offset, uint32_t length) {
        CallbackResult<Code, std::vector<uint8_t>> result;
        zelmor_.requestReadLogFile(fileId, offset, length,
                                   [done = result.callback()](Code code, uint8_t const* data, size_t size) {
                                       done(code, std::vector<uint8_t>(data, data + size));
                                   });
        return result.get();
    }

    ZelmorImpl& zelmor() { return zelmor_; }

private:
    template <class Change>
    void update(Change change) {
        std::lock_guard lock(mutex_);
        change();
        changed_.notify_all();
    }
    bool waitForConnection() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(60), [this] { return connected_ || ended_.has_value(); });
        return connected_;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool connected_ = false;
    std::optional<Reason> ended_;
    // Last: its callbacks use the members above until it is gone.
    ZelmorImpl zelmor_;
};
