// Arbitrary bytes from a host into a simulated device's session, plain and
// through the hub: nothing may crash, and the devices, which live across
// inputs as a real one lives across connections, must not grow without bound.
//
// The first input byte picks the device (bit 0: plain or hub session, the
// rest: the model); the remaining bytes are the host's stream as it arrives,
// so a hub session only opens when the input itself carries the hello.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "aes256_cbc.h"
#include "crc32.h"
#include "frame_codec.h"
#include "hardware_revision.h"
#include "simulated_device.h"

namespace {

struct Model {
    uint8_t revision;
    size_t maxFramePayload;
};

// One model of each family; the small frame limit makes long answers split
// into continuation frames.
constexpr Model kModels[] = {{0x10, 4096}, {0x41, 64}, {0x23, 4096}, {0x31, 200}};
constexpr size_t kModelCount = std::size(kModels);
constexpr size_t kDeviceCount = 2 * kModelCount;

// Plain and hub sessions go to different devices: a plain input may renew the
// access keys, which would otherwise shut every later hub seed out.
sim::SimulatedDevice& deviceFor(uint8_t selector) {
    static std::array<std::unique_ptr<sim::SimulatedDevice>, kDeviceCount> const devices = [] {
        std::array<std::unique_ptr<sim::SimulatedDevice>, kDeviceCount> made;
        for (size_t i = 0; i < kDeviceCount; ++i) {
            sim::SimulatedDeviceConfig config;
            config.hardwareRevision = kModels[i / 2].revision;
            config.maxFramePayload = kModels[i / 2].maxFramePayload;
            config.serial = 200000 + i;
            config.seed = 7 + i;
            // A day of log to list and read; the clock stands still, so the
            // log does not grow and no input pays for catching up.
            config.historyDays = 1;
            config.clock = [] { return int64_t{1700000000}; };
            made[i] = std::make_unique<sim::SimulatedDevice>(config);
        }
        return made;
    }();
    return *devices[(selector >> 1) % kModelCount * 2 + (selector & 1)];
}

bool isHub(uint8_t selector) { return (selector & 1) != 0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0) return 0;
    bool const hub = isHub(data[0]);
    auto session = deviceFor(data[0]).openSession(hub ? sim::SessionMode::Hub : sim::SessionMode::Plain,
                                                  [](uint8_t const*, size_t) {});
    // Fed in two pieces, so that a hello or a frame split across reads is taken too.
    size_t const split = 1 + (size - 1) / 3;
    session->receive(data + 1, split - 1);
    session->receive(data + split, size - split);
    // Only a bad hello ends a session; no fault is configured here.
    if (!hub && session->closed()) std::abort();
    return 0;
}

namespace {

struct Command {
    uint16_t code;
    std::vector<uint8_t> payload;
};

std::vector<uint8_t> le32(uint32_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value >> 16),
            static_cast<uint8_t>(value >> 24)};
}

std::vector<uint8_t> concat(std::vector<uint8_t> a, std::vector<uint8_t> const& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The 100-byte network record of 0x61 and 0x71: SSID 32, password 64, security, three spare bytes.
std::vector<uint8_t> network(std::string_view ssid, std::string_view password, uint8_t security) {
    std::vector<uint8_t> record(100, 0);
    std::memcpy(record.data(), ssid.data(), ssid.size());
    std::memcpy(record.data() + 32, password.data(), password.size());
    record[96] = security;
    return record;
}

// The smallest image a device of this revision takes: a 20-byte header with no
// payload behind it, version 2.00.
std::vector<uint8_t> firmwareImage(uint8_t revision) {
    char const* magic = isWifiFamily(revision) ? "ZLMRWIFI" : isLanFamily(revision) ? "ZLMRETHN" : "ZLMRBLE0";
    std::vector<uint8_t> image(20, 0);
    std::memcpy(image.data() + 4, magic, 8);
    image[13] = 0x02;
    uint32_t const crc = crc32Of(image.data() + 4, image.size() - 4);
    std::vector<uint8_t> const crcBytes = le32(crc);
    std::copy(crcBytes.begin(), crcBytes.end(), image.begin());
    return image;
}

std::vector<Command> commands(uint8_t revision, bool hub) {
    std::vector<uint8_t> const schedule(24, 0x21);
    std::vector<Command> list = {
        {0x01, {}},
        {0x02, {}},
        {0x03, {}},
        {0x04, {}},
        {0x10, {}},
        {0x12, {}},
        {0x13, {}},
        {0x14, {0}},
        {0x20, {}},
        {0x21, std::vector<uint8_t>(104, 0x5C)},
        {0x25, {'F', 'u', 'z', 'z'}},
        {0x26, {}},
        {0x27, {0x00, 0x00, 0x20, 0x41}},
        {0x28, le32(1800000000)},
        {0x30, {}},
        {0x31, std::vector<uint8_t>(80, 0x33)},
        {0x35, {}},
        {0x40, {1}},
        {0x40, {0}},
        {0x44, concat(le32(1), concat(le32(0), le32(512)))},
        {0x44, concat(le32(2), concat(le32(100), le32(200000)))},
        {0x50, {}},
        {0x51, concat(schedule, schedule)},
        {0x52, concat(le32(0), schedule)},
        {0x53, le32(1)},
        {0x55, {}},
        {0x54, {}},
        {0x60, {}},
        {0x62, {}},
        {0x70, {}},
        {0x71, network("Skipper", "secret", 4)},
        {0x61, network("Marina-Guest", "", 0)},
        {0x72, {1}},
        {0xDB, concat(le32(0), le32(4096))},
        {0xF0, le32(20)},
        {0xF1, firmwareImage(revision)},
        {0xF2, {}},
        {0xFB, {}},
        {0x45, {}},
        {0xDE, {}},
        {0x22, {}},
        {0x00, {}},
        {0x9999, {1, 2, 3}},
    };
    // Renewing the keys of a hub device would lock out the hellos of all later hub seeds.
    if (!hub) list.push_back({0x63, {}});
    return list;
}

// The host side of one seed: the hello of a hub session, then frames encrypted
// from a zero IV, which is where the device's receiving chain starts.
class SeedWriter {
public:
    SeedWriter(uint8_t selector, sim::SimulatedDevice& device) : bytes_{selector}, hub_(isHub(selector)) {
        if (!hub_) return;
        Zelmor::WifiAccessKey const key = device.accessKey();
        bytes_.push_back(0x02);
        bytes_.insert(bytes_.end(), key.keyId.begin(), key.keyId.end());
        cipher_.init(key.key);
        cipher_.setIv(nullptr);
    }

    void frame(Command const& command) {
        encodeFrame({command.code, ++sequence_, static_cast<uint16_t>(command.payload.size())}, command.payload.data(),
                    hub_ ? &cipher_ : nullptr, bytes_);
    }

    std::vector<uint8_t> const& bytes() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
    bool hub_;
    Aes256Cbc cipher_;
    uint16_t sequence_ = 0;
};

}  // namespace

// For every device: each command alone, and the whole list as one session.
extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    for (uint8_t selector = 0; selector < kDeviceCount; ++selector) {
        sim::SimulatedDevice& device = deviceFor(selector);
        std::vector<Command> const list = commands(kModels[selector >> 1].revision, isHub(selector));
        SeedWriter all(selector, device);
        for (Command const& command : list) {
            SeedWriter one(selector, device);
            one.frame(command);
            seeds.push_back(one.bytes());
            all.frame(command);
        }
        seeds.push_back(all.bytes());
    }
}
