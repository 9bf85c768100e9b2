// Every wire record decoder on every input: none may read past the payload, and
// a refused record must leave its output as a default-constructed one.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "records.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

template <class Record>
using Decoder = ResponseCode (*)(uint8_t const*, size_t, Record&);

// The input is a heap copy of exactly its length, so that a read past the end
// is caught by the sanitizers; returns whether the decoder accepted it.
template <class Record>
bool run(Decoder<Record> decode, std::vector<uint8_t> const& input, Record& out) {
    return decode(input.data(), input.size(), out) == ResponseCode::Success;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::vector<uint8_t> const input(data, data + size);

    Zelmor::DeviceInfo info;
    info.name = "stale";
    if (!run(decodeDeviceInfo, input, info)) {
        check(info.name.empty() && info.serial == 0 && info.extraStatus == 255);
    } else {
        check(info.name.size() <= 32 && info.wifiNetwork.size() <= 32);
    }

    Zelmor::MonitorData monitor;
    monitor.time = 1;
    if (!run(decodeMonitorData, input, monitor)) {
        check(monitor.time == 0 && monitor.rssi == -32768 && monitor.runtime == 65535);
    } else {
        check(size == 51 || size == 53);
    }

    Zelmor::MonitorStatistics statistics;
    check(run(decodeMonitorStatistics, input, statistics) == (size == 39));
    Zelmor::FuelgaugeStatistics fuelgauge;
    check(run(decodeFuelgaugeStatistics, input, fuelgauge) == (size == 75));
    ZelmorConfig config;
    check(run(decodeConfig, input, config) == (size == ZelmorConfig::kSize));
    Zelmor::AuthKey authKey{};
    check(run(decodeAuthKey, input, authKey) == (size == 32));
    Zelmor::WifiAccessKey accessKey;
    check(run(decodeAccessKey, input, accessKey) == (size == 89));

    std::vector<ZelmorSchedule> schedules;
    decodeSchedules(input.data(), input.size(), schedules);
    check(schedules.size() == size / ZelmorSchedule::kSize);

    std::vector<Zelmor::WifiNetwork> networks;
    decodeWifiNetworkList(input.data(), input.size(), networks);
    check(networks.size() == size / 35);
    for (auto const& network : networks) {
        check(network.ssid.size() <= 32);
        check(encodeWifiNetwork(network).size() == 100);
    }

    std::vector<Zelmor::LogFileDescriptor> files;
    decodeFileListPage(input.data(), input.size(), files);
    check(files.size() == size / 8);
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    auto withHeader = [](uint16_t firmware, uint8_t revision, size_t length) {
        std::vector<uint8_t> b(length, 'a');
        b[0] = static_cast<uint8_t>(firmware);
        b[1] = static_cast<uint8_t>(firmware >> 8);
        b[2] = revision;
        return b;
    };
    seeds.push_back(withHeader(0x0120, 0x41, 82));
    seeds.push_back(withHeader(0x0110, 0x41, 81));
    seeds.push_back(withHeader(0x0100, 0x12, 49));
    seeds.push_back(withHeader(0x00F0, 0x12, 48));
    seeds.push_back(withHeader(0x0240, 0x21, 19));
    seeds.push_back(withHeader(0x0200, 0x31, 18));
    seeds.push_back(withHeader(0x0105, 0x12, 51));
    seeds.push_back(withHeader(0x0105, 0x43, 53));
    seeds.push_back(std::vector<uint8_t>(39, 0x40));
    seeds.push_back(std::vector<uint8_t>(75, 0x41));
    seeds.push_back(std::vector<uint8_t>(ZelmorConfig::kSize, 0x01));
    seeds.push_back(std::vector<uint8_t>(32, 0x02));
    seeds.push_back(std::vector<uint8_t>(89, 0x03));
    seeds.push_back(std::vector<uint8_t>(24 * 3, 0x04));
    seeds.push_back(std::vector<uint8_t>(35 * 2, 'n'));
    seeds.push_back(std::vector<uint8_t>(8 * 4, 0x05));
}
