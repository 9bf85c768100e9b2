#include <array>
#include <cmath>

#include "byte_io.h"
#include "device_commands.h"
#include "hardware_revision.h"

namespace sim {

namespace {

constexpr size_t kNameField = 32;
constexpr size_t kWifiNetworkField = 32;
constexpr size_t kBluetoothNameField = 8;
constexpr float kMaxCalibrationCurrent = 2000;
// Extra status bits: bit 0 the relay is on; bit 1 (WiFi models) the device
// keeps a list of known networks.
constexpr uint8_t kExtraRelayOn = 0x01;
constexpr uint8_t kExtraKnownNetworks = 0x02;

// Lock status bits: network models use bits 4 and 5, Bluetooth models 0 and 1.
struct LockBits {
    uint8_t locked;
    uint8_t masterSet;
};
constexpr LockBits kNetworkLockBits{0x10, 0x20};
constexpr LockBits kBluetoothLockBits{0x01, 0x02};

uint8_t lockStatus(CommandContext const& c) {
    LockBits const bits = isNetworkModel(c.device.hardwareRevision) ? kNetworkLockBits : kBluetoothLockBits;
    return static_cast<uint8_t>((isUserLocked(c.device, c.session) ? bits.locked : 0) |
                                (c.device.masterKey ? bits.masterSet : 0));
}

void writeInfoWifi(CommandContext const& c, ByteWriter& w, bool withExtra, uint8_t extra) {
    DeviceState const& d = c.device;
    w.write<uint64_t>(d.serial).writeString(d.name, kNameField);
    w.write<uint8_t>(static_cast<uint8_t>(d.wifi.status())).writeString(d.wifi.network(), kWifiNetworkField);
    w.write<uint8_t>(lockStatus(c));
    if (withExtra) w.write<uint8_t>(extra);
    // Off the network, or before the network has given it one, the device has no address.
    std::array<uint8_t, 4> const none{};
    std::array<uint8_t, 4> const& address = d.wifi.hasAddress() ? d.ipAddress : none;
    w.writeBytes(address.data(), address.size());
}

void writeInfoLan(CommandContext const& c, ByteWriter& w, bool withExtra, uint8_t extra) {
    DeviceState const& d = c.device;
    w.write<uint64_t>(d.serial).writeString(d.name, kNameField).write<uint8_t>(lockStatus(c));
    if (withExtra) w.write<uint8_t>(extra);
    w.writeBytes(d.ipAddress.data(), d.ipAddress.size());
}

void writeInfoBluetooth(CommandContext const& c, ByteWriter& w, bool withExtra, uint8_t extra) {
    DeviceState const& d = c.device;
    w.writeBytes(d.bluetoothAddress.data(), d.bluetoothAddress.size()).write<uint8_t>(lockStatus(c));
    if (withExtra) w.write<uint8_t>(extra);
    w.writeString(d.name, kBluetoothNameField);
}

// The info layout of each family, and the firmware that added the extra status byte.
struct InfoLayout {
    uint8_t family;
    uint16_t extraStatusFrom;
    void (*write)(CommandContext const&, ByteWriter&, bool, uint8_t);
};
constexpr InfoLayout kWifiInfo{0x40, 0x0120, writeInfoWifi};
constexpr InfoLayout kLanInfo{0x10, 0x0100, writeInfoLan};
constexpr InfoLayout kBluetoothInfo{0, 0x0240, writeInfoBluetooth};

InfoLayout const& infoLayout(uint8_t hardwareRevision) {
    for (InfoLayout const* layout : {&kWifiInfo, &kLanInfo})
        if (layout->family == modelFamily(hardwareRevision)) return *layout;
    return kBluetoothInfo;
}

ByteWriter& writeIdentity(CommandContext& c, ByteWriter& w) {
    return w.write<uint16_t>(c.device.firmwareVersion).write<uint8_t>(c.device.hardwareRevision);
}

float asFloat(double value) { return static_cast<float>(value); }

// Ampere-seconds to mAh, watt-seconds to mWh.
uint64_t milliUnits(double unitSeconds) { return static_cast<uint64_t>(std::llround(unitSeconds / 3.6)); }

}  // namespace

Status getInfo(CommandContext& c) {
    ByteWriter w(c.answer);
    writeIdentity(c, w);
    InfoLayout const& layout = infoLayout(c.device.hardwareRevision);
    DeviceState const& d = c.device;
    uint8_t extra = d.protection.coilEnergised() ? kExtraRelayOn : 0x00;
    if (isWifiFamily(d.hardwareRevision) && d.wifi.kind() == WifiKind::NetworkList) extra |= kExtraKnownNetworks;
    layout.write(c, w, c.device.firmwareVersion >= layout.extraStatusFrom, extra);
    return Status::Success;
}

Status getStatistics(CommandContext& c) {
    DeviceState const& d = c.device;
    MonitorExtremes const& e = d.statistics.extremes();
    ByteWriter w(c.answer);
    writeIdentity(c, w).write<uint32_t>(static_cast<uint32_t>(d.battery.time() - d.bootTime));
    for (double value : {e.minVoltage1, e.maxVoltage1, e.minVoltage2, e.maxVoltage2, e.peakDischargeCurrent,
                         e.peakChargeCurrent, e.minTemperature, e.maxTemperature})
        w.write<float>(asFloat(value));
    return Status::Success;
}

Status getFuelGaugeStatistics(CommandContext& c) {
    DeviceStatistics const& s = c.device.statistics;
    FuelGaugeHistory const& g = s.fuelGauge();
    // The largest known value stays below the "unknown" marker.
    uint32_t const sinceFull =
        g.secondsSinceFullCharge ? static_cast<uint32_t>(std::fmin(*g.secondsSinceFullCharge, 0xFFFFFFFE)) : 0xFFFFFFFF;
    ByteWriter w(c.answer);
    writeIdentity(c, w).write<uint32_t>(sinceFull).write<float>(asFloat(g.fullChargeCapacityAh));
    w.write<uint64_t>(milliUnits(g.dischargedAs)).write<uint64_t>(milliUnits(g.dischargedWs));
    w.write<uint64_t>(milliUnits(g.chargedAs)).write<uint64_t>(milliUnits(g.chargedWs));
    w.write<float>(asFloat(g.minBatteryVoltage)).write<float>(asFloat(g.maxBatteryVoltage));
    w.write<float>(asFloat(g.maxDischargeCurrent)).write<float>(asFloat(g.maxChargeCurrent));
    w.write<float>(asFloat(g.lastDischargeDepthAh)).write<float>(asFloat(g.deepestDischargeAh));
    w.write<uint32_t>(s.fullDischargeCycles()).write<uint32_t>(0);
    return Status::Success;
}

Status getMonitorData(CommandContext& c) {
    MonitorReadings const r = c.device.readings();
    ByteWriter w(c.answer);
    writeIdentity(c, w).write<uint32_t>(r.time).write<uint32_t>(r.status);
    w.write<float>(r.voltage1).write<float>(r.voltage2).write<float>(r.current).write<float>(r.power);
    w.write<int64_t>(r.coulombMeter).write<int64_t>(r.energyMeter).write<float>(r.temperature);
    w.write<uint8_t>(static_cast<uint8_t>(r.powerStatus)).write<uint8_t>(r.stateOfCharge).write<uint16_t>(r.runtime);
    if (isWifiFamily(c.device.hardwareRevision)) w.write<int16_t>(r.rssi);
    return Status::Success;
}

Status resetEnergyMeter(CommandContext& c) {
    c.device.statistics.resetEnergyMeter();
    c.device.note("energy meter reset");
    return Status::Success;
}

Status resetCoulombMeter(CommandContext& c) {
    c.device.statistics.resetCoulombMeter();
    c.device.note("coulomb meter reset");
    return Status::Success;
}

Status resetStatistics(CommandContext& c) {
    c.device.statistics.resetStatistics(c.device.measure());
    c.device.note("statistics reset");
    return Status::Success;
}

Status fuelGaugeSynchronize(CommandContext& c) {
    c.device.statistics.synchronize();
    c.device.note("fuel gauge synchronised");
    return Status::Success;
}

Status setPowerState(CommandContext& c) {
    if (c.payload[0] > 1) return Status::InvalidParameter;
    bool const on = c.payload[0] == 1;
    c.device.protection.switchRelay(on);
    c.device.note(on ? "relay on" : "relay off");
    return Status::Success;
}

Status zeroCurrentOffset(CommandContext& c) {
    c.device.sensor.offsetError = 0;
    c.device.note("current offset zeroed");
    return Status::Success;
}

Status calibrateCurrent(CommandContext& c) {
    auto const reference = readLe<float>(c.payload);
    if (!std::isfinite(reference) || reference == 0 || std::fabs(reference) > kMaxCalibrationCurrent)
        return Status::InvalidParameter;
    // The simulation knows the true current, so calibrating removes the gain
    // error outright instead of estimating it from the reference.
    c.device.sensor.gainError = 0;
    c.device.note("current calibrated");
    return Status::Success;
}

Status setTime(CommandContext& c) {
    // Only the shown time moves; the battery keeps following the real clock.
    c.device.timeOffset = static_cast<int64_t>(readLe<uint32_t>(c.payload)) - c.device.battery.time();
    c.device.note("time set");
    return Status::Success;
}

}  // namespace sim
