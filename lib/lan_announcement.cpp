#include "lan_announcement.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "byte_io.h"
#include "hardware_revision.h"

namespace {

constexpr char kLanMagic[8] = {'Z', 'L', 'M', 'R', 'E', 'T', 'H', 'N'};
constexpr char kWifiMagic[8] = {'Z', 'L', 'M', 'R', 'W', 'I', 'F', 'I'};
constexpr size_t kNameSize = 32;
constexpr size_t kReservedSize = 11;

// The energy meter in whole mWh. A float of Wh may lie beyond what the field
// holds (it saturates) or be NaN (written as 0); rounding, not truncating,
// gives back the meter the float was made from.
int64_t energyMilliwattHours(float energyWh) {
    double const milliwattHours = std::round(static_cast<double>(energyWh) * 1000.0);
    if (std::isnan(milliwattHours)) return 0;
    if (milliwattHours >= 0x1p63) return std::numeric_limits<int64_t>::max();
    if (milliwattHours < -0x1p63) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(milliwattHours);
}

}  // namespace

std::optional<ZelmorScanner::Advertisement> decodeLanAnnouncement(uint8_t const* data, size_t length,
                                                                  uint32_t senderIp) {
    if (length < sizeof kLanMagic + 3) return std::nullopt;
    uint8_t const revision = data[10];
    bool const wifi = std::memcmp(data, kWifiMagic, sizeof kWifiMagic) == 0;
    bool const lan = std::memcmp(data, kLanMagic, sizeof kLanMagic) == 0;
    if (wifi ? !(isWifiFamily(revision) && length == kWifiAnnouncementSize)
             : !(lan && isLanFamily(revision) && length == kLanAnnouncementSize))
        return std::nullopt;

    ZelmorScanner::Advertisement ad;
    ad.source = ZelmorScanner::Advertisement::Source::Lan;
    ad.ipAddress = senderIp;
    ByteReader in(data + sizeof kLanMagic, length - sizeof kLanMagic);
    ad.firmwareVersion = in.read<uint16_t>();
    ad.hardwareRevision = in.read<uint8_t>();
    ad.serial = in.read<uint64_t>();
    ad.name = in.readString(kNameSize);
    ad.status = in.read<uint32_t>();
    ad.voltage1 = in.read<float>();
    ad.voltage2 = in.read<float>();
    ad.current = in.read<float>();
    ad.power = in.read<float>();
    ad.temperature = in.read<float>();
    ad.time = in.read<uint32_t>();
    ad.coulombMeter = static_cast<int64_t>(in.read<uint64_t>());
    ad.energyWh = static_cast<float>(static_cast<double>(static_cast<int64_t>(in.read<uint64_t>())) / 1000.0);
    in.skip(4);  // the address the device holds; the sender's is the one that reaches it
    ad.powerStatus = in.read<uint8_t>();
    ad.stateOfCharge = in.read<uint8_t>();
    ad.runtime = in.read<uint16_t>();
    if (wifi) ad.rssi = in.read<int16_t>();
    return ad;
}

std::vector<uint8_t> encodeLanAnnouncement(ZelmorScanner::Advertisement const& ad, uint32_t heldAddress) {
    bool const lan = isLanFamily(ad.hardwareRevision);
    std::vector<uint8_t> out;
    out.reserve(kWifiAnnouncementSize);
    ByteWriter w(out);
    w.writeBytes(reinterpret_cast<uint8_t const*>(lan ? kLanMagic : kWifiMagic), sizeof kLanMagic)
        .write<uint16_t>(ad.firmwareVersion)
        .write<uint8_t>(ad.hardwareRevision)
        .write<uint64_t>(ad.serial)
        .writeString(ad.name, kNameSize)
        .write<uint32_t>(ad.status)
        .write<float>(ad.voltage1)
        .write<float>(ad.voltage2)
        .write<float>(ad.current)
        .write<float>(ad.power)
        .write<float>(ad.temperature)
        .write<uint32_t>(ad.time)
        .write<uint64_t>(static_cast<uint64_t>(ad.coulombMeter))
        .write<uint64_t>(static_cast<uint64_t>(energyMilliwattHours(ad.energyWh)));
    uint8_t const held[4] = {static_cast<uint8_t>(heldAddress >> 24), static_cast<uint8_t>(heldAddress >> 16),
                             static_cast<uint8_t>(heldAddress >> 8), static_cast<uint8_t>(heldAddress)};
    w.writeBytes(held, sizeof held)
        .write<uint8_t>(ad.powerStatus)
        .write<uint8_t>(ad.stateOfCharge)
        .write<uint16_t>(ad.runtime);
    if (!lan) w.write<int16_t>(ad.rssi);
    out.insert(out.end(), kReservedSize, 0);
    return out;
}
