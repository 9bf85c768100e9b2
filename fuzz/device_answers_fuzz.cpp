// A device's answers, arbitrary bytes two ways. As the link carries them into
// the request engine's receive path, plain or encrypted (the first byte says
// which) while a request is always in flight: nothing may crash, hang or grow
// without bound. As a payload into every record decoder: none may read past
// it, and a refused record must leave its output as a default-constructed one.
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

// Whether `decode` accepted the input, which is a heap copy of exactly its
// length so that a read past the end is caught by the sanitizers.
template <class Record>
bool accepts(ResponseCode (*decode)(uint8_t const*, size_t, Record&), std::vector<uint8_t> const& input, Record& out) {
    return decode(input.data(), input.size(), out) == ResponseCode::Success;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static FuzzedLink plain(false);
    static FuzzedLink encrypted(true);
    if (size > 0) (data[0] & 1 ? encrypted : plain).receive(data + 1, size - 1);

    std::vector<uint8_t> const input(data, data + size);
    Zelmor::DeviceInfo info;
    info.name = "stale";
    if (accepts(decodeDeviceInfo, input, info))
        check(info.name.size() <= 32 && info.wifiNetwork.size() <= 32);
    else
        check(info.name.empty() && info.serial == 0 && info.extraStatus == 255);
    Zelmor::MonitorData monitor;
    monitor.time = 1;
    if (accepts(decodeMonitorData, input, monitor))
        check(size == 51 || size == 53);
    else
        check(monitor.time == 0 && monitor.rssi == -32768 && monitor.runtime == 65535);
    Zelmor::MonitorStatistics statistics;
    check(accepts(decodeMonitorStatistics, input, statistics) == (size == 39));
    Zelmor::FuelgaugeStatistics fuelgauge;
    check(accepts(decodeFuelgaugeStatistics, input, fuelgauge) == (size == 75));
    ZelmorConfig config;
    check(accepts(decodeConfig, input, config) == (size == ZelmorConfig::kSize));
    Zelmor::AuthKey authKey{};
    check(accepts(decodeAuthKey, input, authKey) == (size == 32));
    Zelmor::WifiAccessKey accessKey;
    check(accepts(decodeAccessKey, input, accessKey) == (size == 89));

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

// Answer frames to the monitor-data requests in flight, and payloads of every
// record's exact length, the device records with the firmware and revision
// that select their form.
extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    for (uint16_t sequence = 1; sequence < 4; ++sequence) {
        std::vector<uint8_t> seed{0};
        std::vector<uint8_t> const payload(51, 0x10);
        encodeFrame({0, sequence, static_cast<uint16_t>(payload.size())}, payload.data(), nullptr, seed);
        encodeFrame({kNotificationCode, 0, 0}, nullptr, nullptr, seed);
        seeds.push_back(seed);
    }
    struct DeviceRecord {
        uint16_t firmware;
        uint8_t revision;
        size_t length;
    } const records[] = {{0x0120, 0x41, 82}, {0x0110, 0x41, 81}, {0x0100, 0x12, 49}, {0x00F0, 0x12, 48},
                         {0x0240, 0x21, 19}, {0x0200, 0x31, 18}, {0x0105, 0x12, 51}, {0x0105, 0x43, 53}};
    for (auto const& r : records) {
        std::vector<uint8_t> seed(r.length, 'a');
        seed[0] = static_cast<uint8_t>(r.firmware);
        seed[1] = static_cast<uint8_t>(r.firmware >> 8);
        seed[2] = r.revision;
        seeds.push_back(seed);
    }
    for (size_t length : {39, 75, 104, 32, 89, 24 * 3, 35 * 2, 8 * 4}) seeds.emplace_back(length, 0x41);
}
