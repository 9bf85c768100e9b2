// Arbitrary bytes from a device into the request engine's receive path, on a
// plain and on an encrypted link, while requests are in flight: nothing may
// crash, hang or grow without bound.
#include <cstdint>
#include <vector>

#include "frame_codec.h"
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static FuzzedLink plain(false);
    static FuzzedLink encrypted(true);
    if (size == 0) return 0;
    (data[0] & 1 ? encrypted : plain).receive(data + 1, size - 1);
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    for (uint16_t sequence = 1; sequence < 4; ++sequence) {
        std::vector<uint8_t> seed{0};
        std::vector<uint8_t> payload(51, 0x10);
        encodeFrame({0, sequence, static_cast<uint16_t>(payload.size())}, payload.data(), nullptr, seed);
        encodeFrame({0x8000, 0, 0}, nullptr, nullptr, seed);
        seeds.push_back(seed);
    }
}
