#include "device_session.h"

#include <arpa/inet.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include <fmt/core.h>

#include "auth_key.h"
#include "bluetooth_address.h"
#include "device_link.h"
#include "hardware_revision.h"
#include "hidden_prompt.h"
#include "interrupt.h"
#include "lock_status.h"
#include "response_code.h"
#include "secret_source.h"
#include "zelmor_impl.h"

namespace {

using Code = Zelmor::ResponseCode;

// The engine fails what is pending with a time-out when the link ends, and
// reports the end on another thread just after. A time-out is taken for the
// link's end when that report follows within this long.
constexpr auto kLinkEndGrace = std::chrono::milliseconds(500);
constexpr auto kInterruptPoll = std::chrono::milliseconds(100);
constexpr size_t kLiveDataBacklog = 8;

// Why the adapter could not be opened, and what the user can do about it.
std::string bluetoothUnavailableText(int error) {
    switch (error) {
        case EAFNOSUPPORT:
        case ENODEV:
            return "No Bluetooth adapter found: this machine has no Bluetooth LE support, or the adapter is off or "
                   "missing.";
        case EPERM:
        case EACCES:
            return "No permission to use the Bluetooth adapter: run as a user with the capabilities cap_net_raw and "
                   "cap_net_admin (see docs/bluetooth-le.md).";
        default:
            return fmt::format("Cannot open the Bluetooth adapter: {}.", std::strerror(error));
    }
}

}  // namespace

std::string responseText(Code code) {
    if (char const* message = responseCodeMessage(code)) return message;
    if (code == Code::PasswordRejected) return "Invalid password.";
    return fmt::format("Request failed with code {}.", static_cast<unsigned>(code));
}

DeviceSession::DeviceSession(TargetOptions const& target) {
    std::string password = givenSecret(target.password, target.passwordFile, "--password-file", kPasswordVariable);
    try {
        connect(target);
        info_ = get(&Zelmor::requestGetInfo);
        // Whoever sits at the terminal is asked only when the device needs it;
        // without a terminal the command meets the lock as it is.
        if (password.empty() && deviceLocked(info_) && terminalInput()) password = promptHidden("Password: ");
        if (!password.empty())
            run([&](Zelmor::DoneCallback done) { device().requestUnlock(makeAuthKey(password), done); });
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
    device_->setMonitorDataCallback({});
    device_->disconnect();
    device_.reset();
}

Zelmor& DeviceSession::device() { return *device_; }

void DeviceSession::connect(TargetOptions const& target) {
    int const targets = !target.lan.empty() + !target.link.empty() + !target.linkFile.empty() + !target.ble.empty();
    if (targets != 1)
        throw usageError("This command needs a device: --lan ADDRESS, --link URL, --link-file FILE or --ble ADDRESS");

    Zelmor::WifiAccessKey key;
    in_addr address{};
    std::optional<uint64_t> bluetoothAddress;
    if (!target.ble.empty()) {
        bluetoothAddress = parseBluetoothAddress(target.ble);
        if (!bluetoothAddress)
            throw usageError(
                fmt::format("--ble must be a Bluetooth address such as C2:5A:4C:00:00:01, not '{}'", target.ble));
    } else if (!target.link.empty() || !target.linkFile.empty()) {
        DeviceLinkResult const link =
            parseDeviceLink(givenSecret(target.link, target.linkFile, "--link-file", nullptr));
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
    device_->setMonitorDataCallback([watch = watch_](Zelmor::MonitorData const& data) {
        std::lock_guard lock(watch->mutex);
        // A reader that stopped taking them only ever wants the latest few.
        if (watch->liveData.size() == kLiveDataBacklog) watch->liveData.pop_front();
        watch->liveData.push_back(data);
        watch->changed.notify_all();
    });
    if (bluetoothAddress) {
        if (!device_->openBluetooth()) throw CommandError(bluetoothUnavailableText(errno), kExitLink);
        device_->connectBle(*bluetoothAddress);
    } else if (target.link.empty() && target.linkFile.empty()) {
        device_->connectLan(address.s_addr);
    } else {
        device_->connectHub(key);
    }

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

bool DeviceSession::pushesLiveData() const { return !isNetworkModel(info_.hardwareRevision); }

std::optional<Zelmor::MonitorData> DeviceSession::nextLiveData() {
    std::unique_lock lock(watch_->mutex);
    // Ctrl-C only sets a flag, so the wait looks at it now and then.
    while (!watch_->changed.wait_for(lock, kInterruptPoll,
                                     [&] { return !watch_->liveData.empty() || watch_->ended.has_value(); })) {
        if (interruptRequested()) return std::nullopt;
    }
    if (watch_->liveData.empty()) throw linkError(*watch_->ended);
    Zelmor::MonitorData const data = watch_->liveData.front();
    watch_->liveData.pop_front();
    return data;
}

CommandError DeviceSession::linkError(Zelmor::DisconnectReason reason) {
    return CommandError(
        reason == Zelmor::DisconnectReason::ConnectFailed ? "Device failed to connect" : "Device disconnected",
        kExitLink);
}
