// A device's answers, arbitrary bytes two ways. Into the request engine's
// receive path, plain or encrypted as the first byte says, with a request
// always in flight: nothing may crash, hang or grow without bound. Into every
// record decoder: none may read past the payload, and a refusal leaves a default output.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "frame_codec.h"
#include "records.h"
#include "zelmor_request.h"

namespace {

class FuzzedLink : public ZelmorRequest {
public:
    explicit FuzzedLink(bool encrypted) {
        startThread();
        if (encrypted) startLinkEncryption(WifiAccessKey{});
        keepBusy();
    }
    ~FuzzedLink() override {
        stopThread();
        joinThread();
    }

    bool openBluetooth() override { return false; }
    void connectHub(WifiAccessKey const&) override {}
    void connectLan(unsigned int) override {}
    void connectBle(unsigned long) override {}
    void disconnect() override {}
    void sendData(uint8_t const*, unsigned long) override {}
    int16_t getRssi() override { return -32768; }

    void receive(uint8_t const* data, size_t length) { receiveBytes(data, length); }

private:
    // Always one request waiting for an answer, so that fuzzed frames can match it.
    void keepBusy() {
        requestGetMonitorData([this](ResponseCode, MonitorData const&) { keepBusy(); });
    }
};

void check(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static FuzzedLink plain(false);
    static FuzzedLink encrypted(true);
    if (size > 0) (data[0] & 1 ? encrypted : plain).receive(data + 1, size - 1);

    // A heap copy of exactly the input's length, so that a read past the end is caught by the sanitizers.
    std::vector<uint8_t> const input(data, data + size);
    auto const accepts = [&](auto decode, auto& out) {
        return decode(input.data(), input.size(), out) == ResponseCode::Success;
    };
    Zelmor::DeviceInfo info;
    info.name = "stale";
    if (accepts(decodeDeviceInfo, info))
        check(info.name.size() <= 32 && info.wifiNetwork.size() <= 32);
    else
        check(info.name.empty() && info.serial == 0 && info.extraStatus == 255);
    Zelmor::MonitorData monitor;
    monitor.time = 1;
    if (accepts(decodeMonitorData, monitor))
        check(size == 51 || size == 53);
    else
        check(monitor.time == 0 && monitor.rssi == -32768 && monitor.runtime == 65535);
    Zelmor::MonitorStatistics statistics;
    check(accepts(decodeMonitorStatistics, statistics) == (size == 39));
    Zelmor::FuelgaugeStatistics fuelgauge;
    check(accepts(decodeFuelgaugeStatistics, fuelgauge) == (size == 75));
    ZelmorConfig config;
    check(accepts(decodeConfig, config) == (size == ZelmorConfig::kSize));
    Zelmor::AuthKey authKey{};
    check(accepts(decodeAuthKey, authKey) == (size == 32));
    Zelmor::WifiAccessKey accessKey;
    check(accepts(decodeAccessKey, accessKey) == (size == 89));

    std::vector<ZelmorSchedule> schedules;
    decodeSchedules(input.data(), input.size(), schedules);
    check(schedules.size() == size / ZelmorSchedule::kSize);
    std::vector<Zelmor::WifiNetwork> networks;
    decodeWifiNetworkList(input.data(), input.size(), networks);
    check(networks.size() == size / 35);
    for (auto const& network : networks) check(network.ssid.size() <= 32 && encodeWifiNetwork(network).size() == 100);
    std::vector<Zelmor::LogFileDescriptor> files;
    decodeFileListPage(input.data(), input.size(), files);
    check(files.size() == size / 8);
    return 0;
}

// Answer frames to the monitor-data requests in flight. Records need no seeds:
// random inputs reach every exact length, and the revision byte often enough.
extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    for (uint16_t sequence = 1; sequence < 4; ++sequence) {
        std::vector<uint8_t> seed{0};
        std::vector<uint8_t> const payload(51, 0x10);
        encodeFrame({0, sequence, static_cast<uint16_t>(payload.size())}, payload.data(), nullptr, seed);
        encodeFrame({kNotificationCode, 0, 0}, nullptr, nullptr, seed);
        seeds.push_back(seed);
    }
}
