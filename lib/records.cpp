#include "records.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "byte_io.h"
#include "hardware_revision.h"

namespace {

constexpr size_t kInfoHeaderSize = 3;  // firmware version, hardware revision
constexpr size_t kNameSize = 32;
constexpr size_t kBluetoothNameSize = 8;
constexpr size_t kMonitorDataSize = 51;
constexpr size_t kMonitorDataWifiSize = kMonitorDataSize + sizeof(int16_t);
constexpr size_t kMonitorStatisticsSize = 39;
constexpr size_t kFuelgaugeStatisticsSize = 75;
constexpr size_t kStatisticsSkip = 3;
constexpr size_t kAuthKeySize = 32;
constexpr size_t kAccessKeySize = 89;
constexpr size_t kAccessKeyIdOffset = 41;
constexpr size_t kWifiListEntrySize = 35;
constexpr size_t kFileDescriptorSize = 8;
constexpr size_t kWifiNetworkSize = 100;
constexpr size_t kPasswordSize = 64;
constexpr uint8_t kWifiNetworkPadding[2]{};
// Network record option bits (byte 97) and list entry flags (byte 33).
constexpr uint8_t kOptionMetered = 0x01;
constexpr uint8_t kListInUse = 0x01;
constexpr uint8_t kListFailed = 0x02;
constexpr uint8_t kListMetered = 0x04;

static_assert(kAccessKeyIdOffset + 16 + 32 == kAccessKeySize);
static_assert(kStatisticsSkip + sizeof(uint32_t) + 8 * sizeof(float) == kMonitorStatisticsSize);
static_assert(kStatisticsSkip + 72 == kFuelgaugeStatisticsSize);
static_assert(kNameSize + 3 == kWifiListEntrySize);
static_assert(kNameSize + kPasswordSize + 2 + sizeof(kWifiNetworkPadding) == kWifiNetworkSize);
static_assert(2 + 1 + 4 + 4 + 4 * sizeof(float) + 2 * sizeof(int64_t) + sizeof(float) + 1 + 1 + 2 == kMonitorDataSize);

// The information record grew one status byte in a firmware release of each
// family; below that release the record is one byte shorter.
struct InfoLayout {
    uint8_t family;
    uint16_t extraStatusFirmware;
    size_t shortLength;
};

constexpr InfoLayout kInfoLayouts[] = {
    {0x40, 0x0120, kInfoHeaderSize + 8 + kNameSize + 1 + kNameSize + 1 + 4},
    {0x10, 0x0100, kInfoHeaderSize + 8 + kNameSize + 1 + 4},
};
// Every family not listed above is a Bluetooth LE model.
constexpr InfoLayout kBluetoothInfoLayout{0x00, 0x0240, kInfoHeaderSize + 6 + 1 + kBluetoothNameSize};

static_assert(kInfoLayouts[0].shortLength == 81);
static_assert(kInfoLayouts[1].shortLength == 48);
static_assert(kBluetoothInfoLayout.shortLength == 18);

InfoLayout const& infoLayout(uint8_t revision) {
    for (auto const& layout : kInfoLayouts)
        if (layout.family == modelFamily(revision)) return layout;
    return kBluetoothInfoLayout;
}

}  // namespace

ResponseCode decodeDeviceInfo(uint8_t const* data, size_t length, Zelmor::DeviceInfo& out) {
    out = {};
    if (length < kInfoHeaderSize) return ResponseCode::RequestFailed;
    ByteReader r(data, length);
    auto const firmware = r.read<uint16_t>();
    auto const revision = r.read<uint8_t>();
    InfoLayout const& layout = infoLayout(revision);
    bool const hasExtra = firmware >= layout.extraStatusFirmware;
    if (length != layout.shortLength + (hasExtra ? 1 : 0)) return ResponseCode::RequestFailed;

    Zelmor::DeviceInfo info;
    info.firmwareVersion = firmware;
    info.hardwareRevision = revision;
    bool const network = isNetworkModel(revision);
    if (network) {
        info.serial = r.read<uint64_t>();
        info.name = r.readString(kNameSize);
        if (isWifiFamily(revision)) {
            info.wifiStatus = r.read<uint8_t>();
            info.wifiNetwork = r.readString(kNameSize);
        }
    } else {
        r.readBytes(info.bluetoothAddress.data(), info.bluetoothAddress.size());
    }
    info.lockStatus = r.read<uint8_t>();
    if (hasExtra) info.extraStatus = r.read<uint8_t>();
    if (network) {
        // Kept in the order the bytes arrive: the value is in network byte order.
        r.readBytes(reinterpret_cast<uint8_t*>(&info.ipAddress), sizeof(info.ipAddress));
    } else {
        info.name = r.readString(kBluetoothNameSize);
    }
    out = std::move(info);
    return ResponseCode::Success;
}

void readMonitorReadings(ByteReader& r, Zelmor::MonitorData& m, bool secondVoltage) {
    m.time = r.read<uint32_t>();
    m.status = r.read<uint32_t>();
    m.voltage1 = r.read<float>();
    m.voltage2 = secondVoltage ? r.read<float>() : std::numeric_limits<float>::quiet_NaN();
    m.current = r.read<float>();
    m.power = r.read<float>();
    // The meters precede the temperature on the wire, unlike in the record.
    m.coulombMeter = r.read<int64_t>();
    m.energyMeter = r.read<int64_t>();
    m.temperature = r.read<float>();
    m.powerStatus = r.read<uint8_t>();
    m.stateOfCharge = r.read<uint8_t>();
    m.runtime = r.read<uint16_t>();
}

ResponseCode decodeMonitorData(uint8_t const* data, size_t length, Zelmor::MonitorData& out) {
    out = {};
    if (length <= 2) return ResponseCode::RequestFailed;
    uint8_t const revision = data[2];
    bool const wifi = isWifiFamily(revision);
    // Bluetooth LE models push this record through their own channel and are
    // never polled, so their revisions are refused here.
    if (!(wifi && length == kMonitorDataWifiSize) && !(isLanFamily(revision) && length == kMonitorDataSize))
        return ResponseCode::RequestFailed;

    ByteReader r(data, length);
    Zelmor::MonitorData m;
    m.firmwareVersion = r.read<uint16_t>();
    m.hardwareRevision = r.read<uint8_t>();
    readMonitorReadings(r, m, true);
    if (wifi) m.rssi = r.read<int16_t>();
    out = m;
    return ResponseCode::Success;
}

ResponseCode decodeMonitorStatistics(uint8_t const* data, size_t length, Zelmor::MonitorStatistics& out) {
    out = {};
    if (length != kMonitorStatisticsSize) return ResponseCode::RequestFailed;
    ByteReader r(data, length);
    r.skip(kStatisticsSkip);
    out.timeSincePowerOn = r.read<uint32_t>();
    out.minVoltage1 = r.read<float>();
    out.maxVoltage1 = r.read<float>();
    out.minVoltage2 = r.read<float>();
    out.maxVoltage2 = r.read<float>();
    out.peakDischargeCurrent = r.read<float>();
    out.peakChargeCurrent = r.read<float>();
    out.minTemperature = r.read<float>();
    out.maxTemperature = r.read<float>();
    return ResponseCode::Success;
}

ResponseCode decodeFuelgaugeStatistics(uint8_t const* data, size_t length, Zelmor::FuelgaugeStatistics& out) {
    out = {};
    if (length != kFuelgaugeStatisticsSize) return ResponseCode::RequestFailed;
    ByteReader r(data, length);
    r.skip(kStatisticsSkip);
    out.timeSinceFullCharge = r.read<uint32_t>();
    out.fullChargeCapacity = r.read<float>();
    out.totalDischargedCapacity = r.read<uint64_t>();
    out.totalDischargedEnergy = r.read<uint64_t>();
    out.totalChargedCapacity = r.read<uint64_t>();
    out.totalChargedEnergy = r.read<uint64_t>();
    out.minBatteryVoltage = r.read<float>();
    out.maxBatteryVoltage = r.read<float>();
    out.maxDischargeCurrent = r.read<float>();
    out.maxChargeCurrent = r.read<float>();
    out.lastDischargeDepth = r.read<float>();
    out.deepestDischarge = r.read<float>();
    out.fullDischargeCycles = r.read<uint32_t>();
    return ResponseCode::Success;
}

ResponseCode decodeConfig(uint8_t const* data, size_t length, ZelmorConfig& out) {
    out = {};
    if (length != ZelmorConfig::kSize) return ResponseCode::InvalidDeviceResponse;
    std::copy_n(data, ZelmorConfig::kSize, out.image().begin());
    return ResponseCode::Success;
}

ResponseCode decodeAuthKey(uint8_t const* data, size_t length, Zelmor::AuthKey& out) {
    out = {};
    if (length != kAuthKeySize) return ResponseCode::InvalidDeviceResponse;
    std::copy_n(data, kAuthKeySize, out.begin());
    return ResponseCode::Success;
}

ResponseCode decodeAccessKey(uint8_t const* data, size_t length, Zelmor::WifiAccessKey& out) {
    out = {};
    if (length != kAccessKeySize) return ResponseCode::InvalidDeviceResponse;
    ByteReader r(data, length);
    r.skip(kAccessKeyIdOffset);
    r.readBytes(out.keyId.data(), out.keyId.size());
    r.readBytes(out.key.data(), out.key.size());
    return ResponseCode::Success;
}

void decodeSchedules(uint8_t const* data, size_t length, std::vector<ZelmorSchedule>& out) {
    for (size_t at = 0; at + ZelmorSchedule::kSize <= length; at += ZelmorSchedule::kSize) {
        ZelmorSchedule::Bytes bytes;
        std::copy_n(data + at, ZelmorSchedule::kSize, bytes.begin());
        out.emplace_back(bytes);
    }
}

void decodeWifiNetworkList(uint8_t const* data, size_t length, std::vector<Zelmor::WifiNetwork>& out) {
    size_t const count = length / kWifiListEntrySize;
    out.reserve(out.size() + count);
    ByteReader r(data, length);
    for (size_t i = 0; i < count; ++i) {
        Zelmor::WifiNetwork network;
        network.ssid = r.readString(kNameSize);
        network.security = r.read<uint8_t>();
        auto const flags = r.read<uint8_t>();
        network.inUse = (flags & kListInUse) != 0;
        network.failed = (flags & kListFailed) != 0;
        network.metered = (flags & kListMetered) != 0;
        network.lastSignal = r.read<int8_t>();
        out.push_back(std::move(network));
    }
}

void decodeFileListPage(uint8_t const* data, size_t length, std::vector<Zelmor::LogFileDescriptor>& out) {
    ByteReader r(data, length);
    while (r.remaining() >= kFileDescriptorSize) {
        Zelmor::LogFileDescriptor file;
        file.fileId = r.read<uint32_t>();
        file.size = r.read<uint32_t>();
        out.push_back(file);
    }
}

std::vector<uint8_t> encodeWifiNetwork(Zelmor::WifiNetwork const& network) {
    std::vector<uint8_t> out;
    out.reserve(kWifiNetworkSize);
    ByteWriter(out)
        .writeString(network.ssid, kNameSize)
        .writeString(network.password, kPasswordSize)
        .write<uint8_t>(network.security)
        .write<uint8_t>(network.metered ? kOptionMetered : 0)
        .writeBytes(kWifiNetworkPadding, sizeof(kWifiNetworkPadding));
    return out;
}
