#include "device_session.h"

#include <arpa/inet.h>

#include <chrono>

#include <fmt/core.h>

#include "auth_key.h"
#include "device_link.h"
#include "response_code.h"
#include "zelmor_impl.h"

namespace {

using Code = Zelmor::ResponseCode;

// The engine fails what is pending with a time-out when the link ends, and
// reports the end on another thread just after. A time-out is taken for the
// link's end when that report follows within this long.
constexpr auto kLinkEndGrace = std::chrono::milliseconds(500);

}  // namespace

std::string responseText(Code code) {
    if (char const* message = responseCodeMessage(code)) return message;
    if (code == Code::PasswordRejected) return "Invalid password.";
    return fmt::format("Request failed with code {}.", static_cast<unsigned>(code));
}

DeviceSession::DeviceSession(TargetOptions const& target) {
    try {
        connect(target);
        info_ = get(&Zelmor::requestGetInfo);
        if (!target.password.empty())
            run([&](Zelmor::DoneCallback done) { device().requestUnlock(makeAuthKey(target.password), done); });
    } catch (...) {
        close();
        throw;
    }
}

DeviceSession::~DeviceSession() { close(); }

void DeviceSession::close() {
    if (!device_) return;
    device_->setConnectedCallback({});
    device_->setDisconnectCallback({});
    device_->disconnect();
    device_.reset();
}

Zelmor& DeviceSession::device() { return *device_; }

void DeviceSession::connect(TargetOptions const& target) {
    if (target.lan.empty() == target.link.empty())
        throw usageError("This command needs a device: --lan ADDRESS or --link URL");

    Zelmor::WifiAccessKey key;
    in_addr address{};
    if (!target.link.empty()) {
        DeviceLinkResult const link = parseDeviceLink(target.link);
        if (!link.identifier) throw usageError(link.error);
        key.keyId = link.identifier->channelId;
        key.key = link.identifier->key;
    } else if (::inet_pton(AF_INET, target.lan.c_str(), &address) != 1) {
        throw usageError(fmt::format("--lan must be an IPv4 address such as 192.168.1.20, not '{}'", target.lan));
    }

    device_ = std::make_unique<ZelmorImpl>(target.hub.empty() ? hubHostSetting() : target.hub);
    device_->setConnectedCallback([watch = watch_] {
        std::lock_guard lock(watch->mutex);
        watch->connected = true;
        watch->changed.notify_all();
    });
    device_->setDisconnectCallback([watch = watch_](Zelmor::DisconnectReason reason) {
        std::lock_guard lock(watch->mutex);
        if (!watch->ended) watch->ended = reason;
        watch->changed.notify_all();
    });
    if (target.link.empty())
        device_->connectLan(address.s_addr);
    else
        device_->connectHub(key);

    std::unique_lock lock(watch_->mutex);
    watch_->changed.wait(lock, [&] { return watch_->connected || watch_->ended.has_value(); });
    if (watch_->ended) throw linkError(*watch_->ended);
}

Code DeviceSession::result(std::function<void(Zelmor::DoneCallback)> const& request) {
    return await<Code>([&](std::function<void(Code)> deliver) { request(std::move(deliver)); });
}

void DeviceSession::check(Code code) {
    if (code == Code::Success) return;
    if (code == Code::RequestTimeout) {
        std::unique_lock lock(watch_->mutex);
        if (watch_->changed.wait_for(lock, kLinkEndGrace, [&] { return watch_->ended.has_value(); }))
            throw linkError(*watch_->ended);
    }
    throw CommandError(responseText(code), kExitFailure);
}

CommandError DeviceSession::linkError(Zelmor::DisconnectReason reason) {
    return CommandError(
        reason == Zelmor::DisconnectReason::ConnectFailed ? "Device failed to connect" : "Device disconnected",
        kExitLink);
}
