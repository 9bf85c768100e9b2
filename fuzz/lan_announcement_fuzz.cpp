// LAN announcements are datagrams anyone on the network can send to the
// scanner's port. A datagram is taken only at the exact length of its form with
// a magic that matches its revision's family, and what was taken writes back
// to the same bytes: all but the name's padding, the reserved tail (zero) and
// the energy meter, which passes through a float and so comes back to within
// the float's precision.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "byte_io.h"
#include "fuzz_check.h"
#include "hardware_revision.h"
#include "lan_announcement.h"

namespace {

constexpr uint32_t kSender = 0x0100007F;  // 127.0.0.1 in network byte order
constexpr size_t kNameAt = 19;
constexpr size_t kNameSize = 32;
constexpr size_t kEnergyAt = 87;
constexpr size_t kHeldAddressAt = 95;
constexpr size_t kReservedSize = 11;

bool sameBytes(std::vector<uint8_t> const& a, std::vector<uint8_t> const& b, size_t from, size_t to) {
    return std::memcmp(a.data() + from, b.data() + from, to - from) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    // An exactly sized copy, so a read past the end shows in sanitizer builds.
    std::vector<uint8_t> const input(data, data + size);
    auto const ad = decodeLanAnnouncement(input.data(), input.size(), kSender);
    if (!ad) return 0;

    bool const wifi = std::memcmp(input.data(), "ZLMRWIFI", 8) == 0;
    fuzzCheck(wifi ? isWifiFamily(ad->hardwareRevision) && size == kWifiAnnouncementSize
                   : std::memcmp(input.data(), "ZLMRETHN", 8) == 0 && isLanFamily(ad->hardwareRevision) &&
                         size == kLanAnnouncementSize,
              "an announcement is taken only in its family's form");
    fuzzCheck(ad->source == ZelmorScanner::Advertisement::Source::Lan && ad->ipAddress == kSender,
              "the sender is the address");
    fuzzCheck(ad->name.size() <= kNameSize && ad->name.find('\0') == std::string::npos, "the name stops at its NUL");
    fuzzCheck(wifi || ad->rssi == -32768, "a LAN announcement carries no signal");

    uint32_t const held = static_cast<uint32_t>(input[kHeldAddressAt]) << 24 | input[kHeldAddressAt + 1] << 16 |
                          input[kHeldAddressAt + 2] << 8 | input[kHeldAddressAt + 3];
    std::vector<uint8_t> const again = encodeLanAnnouncement(*ad, held);
    fuzzCheck(again.size() == size, "the announcement is written at its form's length");
    size_t const nameEnd = kNameAt + ad->name.size();
    size_t const reservedAt = size - kReservedSize;
    fuzzCheck(sameBytes(input, again, 0, nameEnd) && sameBytes(input, again, kNameAt + kNameSize, kEnergyAt) &&
                  sameBytes(input, again, kHeldAddressAt, reservedAt),
              "every field comes back as it was");
    for (size_t i = nameEnd; i < kNameAt + kNameSize; ++i) fuzzCheck(again[i] == 0, "the name is zero-padded");
    for (size_t i = reservedAt; i < size; ++i) fuzzCheck(again[i] == 0, "the reserved bytes are zero");

    auto const meter = static_cast<double>(static_cast<int64_t>(readLe<uint64_t>(input.data() + kEnergyAt)));
    auto const written = static_cast<double>(static_cast<int64_t>(readLe<uint64_t>(again.data() + kEnergyAt)));
    fuzzCheck(std::abs(written - meter) <= std::max(1.0, std::abs(meter) * 0x1p-23),
              "the energy meter comes back within the float's precision");
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    ZelmorScanner::Advertisement ad;
    ad.firmwareVersion = 0x0312;
    ad.serial = 0x0000000000001A2B;
    ad.name = "Boat";
    ad.voltage1 = 12.5f;
    ad.voltage2 = NAN;
    ad.current = -3.25f;
    ad.energyWh = 1234.5f;
    ad.coulombMeter = -42;
    ad.stateOfCharge = 87;
    ad.runtime = 600;
    for (uint8_t revision : {0x10, 0x11, 0x40, 0x41}) {
        ad.hardwareRevision = revision;
        ad.rssi = isWifiFamily(revision) ? -61 : -32768;
        seeds.push_back(encodeLanAnnouncement(ad, 0x7F000002));
    }
    ad.name = std::string(32, 'N');
    ad.energyWh = -9.0e15f;
    seeds.push_back(encodeLanAnnouncement(ad, 0x7F0000FE));
}
