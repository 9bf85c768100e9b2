#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "command_context.h"
#include "command_error.h"
#include "zelmor.h"

class ZelmorImpl;

/// The sentence shown for a failed request: the system's message, "Invalid
/// password." for a refused unlock, else "Request failed with code N.".
std::string responseText(Zelmor::ResponseCode code);

/// One link to the device named by the target options, used synchronously:
/// the constructor connects, reads the information record and unlocks when a
/// password is given (--password, --password-file, $ZELMOR_PASSWORD, or typed
/// at a hidden prompt when the device is locked and standard input is a
/// terminal); each call then waits for its request's callback. Every
/// wait ends: requests end with a code, and a link that ends makes the waiter
/// give up. Failures throw CommandError ("Device failed to connect", "Device
/// disconnected", or the request's message).
class DeviceSession {
public:
    explicit DeviceSession(TargetOptions const& target);
    /// Clears the callbacks and ends the link before the connection goes away.
    ~DeviceSession();
    DeviceSession(DeviceSession const&) = delete;
    DeviceSession& operator=(DeviceSession const&) = delete;

    Zelmor& device();
    /// The information record read when the link was made.
    Zelmor::DeviceInfo const& info() const { return info_; }

    /// Runs a request that answers with a record; throws when it fails.
    template <class Record>
    Record get(void (Zelmor::*request)(Zelmor::RecordCallback<Record>)) {
        auto result = await<std::pair<Zelmor::ResponseCode, Record>>([&](auto deliver) {
            (device().*request)([deliver](Zelmor::ResponseCode code, Record const& record) {
                deliver({code, record});
            });
        });
        check(result.first);
        return std::move(result.second);
    }

    /// Runs a request that answers with a code alone and gives the code.
    Zelmor::ResponseCode result(std::function<void(Zelmor::DoneCallback)> const& request);
    /// Runs a request that answers with a code alone; throws when it fails.
    void run(std::function<void(Zelmor::DoneCallback)> const& request) { check(result(request)); }

    /// Starts something that reports once through `deliver` (on any thread) and
    /// waits for the report, or throws when the link ends first.
    template <class Value>
    Value await(std::function<void(std::function<void(Value)>)> const& start) {
        auto slot = std::make_shared<std::optional<Value>>();
        start([watch = watch_, slot](Value value) {
            std::lock_guard lock(watch->mutex);
            if (!*slot) *slot = std::move(value);
            watch->changed.notify_all();
        });
        std::unique_lock lock(watch_->mutex);
        watch_->changed.wait(lock, [&] { return slot->has_value() || watch_->ended.has_value(); });
        if (!*slot) throw linkError(*watch_->ended);
        return std::move(**slot);
    }

    /// Throws the CommandError for a failed request. A time-out that comes
    /// with the end of the link is reported as the link's end.
    void check(Zelmor::ResponseCode code);

    /// Bluetooth LE models push their live readings instead of being polled.
    bool pushesLiveData() const;
    /// Waits for the next pushed reading; nothing after Ctrl-C. Throws when the
    /// link ends first.
    std::optional<Zelmor::MonitorData> nextLiveData();

private:
    /// The link's state as its callbacks report it; shared with them, so a
    /// late callback never touches a session that is gone.
    struct LinkWatch {
        std::mutex mutex;
        std::condition_variable changed;
        bool connected = false;
        std::optional<Zelmor::DisconnectReason> ended;
        std::deque<Zelmor::MonitorData> liveData;  // pushed and not yet taken, newest last
    };

    static CommandError linkError(Zelmor::DisconnectReason reason);
    void connect(TargetOptions const& target);
    void close();

    std::shared_ptr<LinkWatch> watch_ = std::make_shared<LinkWatch>();
    std::unique_ptr<ZelmorImpl> device_;
    Zelmor::DeviceInfo info_;
};
