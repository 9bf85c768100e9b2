// A short live session between the request engine and a simulated battery
// monitor in the same process: connect, unlock, read the device, watch its live
// readings, list and fetch its data log. Shows the protocol stack at work
// before any window exists.
#include <fmt/chrono.h>
#include <fmt/core.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "auth_key.h"
#include "hardware_revision.h"
#include "in_process_zelmor.h"
#include "log_record.h"
#include "power_status.h"
#include "response_code.h"
#include "simulated_device.h"

namespace {

std::string codeText(Zelmor::ResponseCode code) {
    char const* text = responseCodeMessage(code);
    return text ? text : fmt::format("code {}", static_cast<unsigned>(code));
}

// Waits for one callback of a request; requests answer on the engine's worker
// thread. The promise is shared with the callback, which may still be leaving
// set_value when the waiter has already moved on.
template <class... Args>
struct Reply {
    using Value = std::tuple<std::decay_t<Args>...>;
    std::shared_ptr<std::promise<Value>> promise = std::make_shared<std::promise<Value>>();
    std::future<Value> future = promise->get_future();
    std::function<void(Args...)> callback() {
        return [p = promise](Args... args) { p->set_value(Value(std::decay_t<Args>(args)...)); };
    }
    Value get() { return future.get(); }
};

int usage(char const* program) {
    fmt::print(stderr, "usage: {} [--seconds N] [--hub]\n", program);
    fmt::print(stderr, "  --seconds N  how long to watch the live readings (default 10)\n");
    fmt::print(stderr, "  --hub        use the encrypted link, as through the hub\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    int seconds = 10;
    bool hub = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--seconds") == 0 && i + 1 < argc)
            seconds = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--hub") == 0)
            hub = true;
        else
            return usage(argv[0]);
    }

    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x41;
    config.name = "Cabin bank";
    config.serial = 0x5A4C000000000042;
    config.userPassword = "bilge";
    config.historyDays = 3;
    sim::SimulatedDevice device(config);
    InProcessZelmor zelmor(device);

    Reply<> connected;
    zelmor.setConnectedCallback(connected.callback());
    zelmor.setDisconnectCallback([](Zelmor::DisconnectReason reason) {
        if (reason != Zelmor::DisconnectReason::ClosedLocally) fmt::print("Device disconnected\n");
    });
    fmt::print("Connecting to a simulated {} over {} link ...\n", modelName(config.hardwareRevision),
               hub ? "an encrypted hub" : "a plain LAN");
    if (hub)
        zelmor.connectHub(device.accessKey());
    else
        zelmor.connectLan(0);
    connected.get();

    Reply<Zelmor::ResponseCode, Zelmor::DeviceInfo> info;
    zelmor.requestGetInfo(info.callback());
    auto [infoCode, deviceInfo] = info.get();
    if (infoCode != Zelmor::ResponseCode::Success) {
        fmt::print(stderr, "{}\n", codeText(infoCode));
        return 1;
    }
    fmt::print("Connected: \"{}\", {}, Device serial: {:016X}, Firmware: v{:X}.{:02X}\n", deviceInfo.name,
               modelName(deviceInfo.hardwareRevision), deviceInfo.serial, deviceInfo.firmwareVersion >> 8,
               deviceInfo.firmwareVersion & 0xFF);

    if (deviceInfo.lockStatus & 0x10) {
        fmt::print("The device is locked; unlocking with the password \"{}\" ...\n", config.userPassword);
        Reply<Zelmor::ResponseCode> unlocked;
        zelmor.requestUnlock(makeAuthKey(config.userPassword), unlocked.callback());
        auto [code] = unlocked.get();
        fmt::print("  {}\n", code == Zelmor::ResponseCode::Success ? "unlocked" : codeText(code));
    }

    fmt::print("\n{:>8}  {:>9} {:>9} {:>9} {:>10} {:>6} {:>5}  {}\n", "time", "V1", "V2", "I", "P", "T", "SoC",
               "status");
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < seconds; ++i) {
        Reply<Zelmor::ResponseCode, Zelmor::MonitorData> live;
        zelmor.requestGetMonitorData(live.callback());
        auto [code, m] = live.get();
        if (code == Zelmor::ResponseCode::Success)
            fmt::print("{:%H:%M:%S}  {:7.3f} V {:7.3f} V {:7.3f} A {:8.2f} W {:4.1f}C {:4}%  {}\n",
                       std::chrono::sys_seconds(std::chrono::seconds(m.time)), m.voltage1, m.voltage2, m.current,
                       m.power, m.temperature, m.stateOfCharge, powerStatusText(m.powerStatus));
        else
            fmt::print("{}\n", codeText(code));
        next += std::chrono::seconds(1);
        std::this_thread::sleep_until(next);
    }

    Reply<Zelmor::ResponseCode, std::vector<Zelmor::LogFileDescriptor>> list;
    zelmor.requestGetFileList(list.callback());
    auto [listCode, files] = list.get();
    fmt::print("\nData log: {} files\n", files.size());
    size_t records = 0;
    for (auto const& file : files) {
        std::vector<uint8_t> bytes;
        while (bytes.size() < file.size) {
            Reply<Zelmor::ResponseCode, std::vector<uint8_t>> block;
            zelmor.requestReadLogFile(file.fileId, static_cast<uint32_t>(bytes.size()), 0x20000,
                                      [done = block.callback()](Zelmor::ResponseCode code, uint8_t const* data,
                                                                size_t length) {
                                          done(code, std::vector<uint8_t>(data, data + length));
                                      });
            auto [code, data] = block.get();
            if (code != Zelmor::ResponseCode::Success || data.empty()) break;
            bytes.insert(bytes.end(), data.begin(), data.end());
        }
        std::vector<LogRecord> decoded;
        decodeLogRecords(deviceInfo.hardwareRevision, bytes.data(), bytes.size(), decoded);
        records += decoded.size();
        if (!decoded.empty())
            fmt::print("  r{:08x}.log  {:7} bytes  {:5} records  {:%Y-%m-%d %H:%M} .. {:%H:%M}\n", file.fileId,
                       bytes.size(), decoded.size(), std::chrono::sys_seconds(std::chrono::seconds(decoded.front().time)),
                       std::chrono::sys_seconds(std::chrono::seconds(decoded.back().time)));
    }
    fmt::print("{} records fetched\n", records);
    zelmor.disconnect();
    return listCode == Zelmor::ResponseCode::Success ? 0 : 1;
}
