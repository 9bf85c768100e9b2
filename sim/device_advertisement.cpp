#include "device_advertisement.h"

#include "hardware_revision.h"
#include "simulated_device.h"

namespace sim {

ZelmorScanner::Advertisement advertisementOf(SimulatedDevice& device) {
    DeviceSnapshot const snapshot = device.snapshot();
    MonitorReadings const readings = device.readings();
    ZelmorScanner::Advertisement ad;
    ad.hardwareRevision = snapshot.hardwareRevision;
    ad.firmwareVersion = snapshot.firmwareVersion;
    ad.serial = snapshot.serial;
    ad.name = snapshot.name;
    ad.status = readings.status;
    ad.time = readings.time;
    ad.voltage1 = readings.voltage1;
    ad.voltage2 = readings.voltage2;
    ad.current = readings.current;
    ad.power = readings.power;
    ad.temperature = readings.temperature;
    ad.coulombMeter = readings.coulombMeter;
    ad.energyWh = static_cast<float>(static_cast<double>(readings.energyMeter) / 1000.0);
    ad.powerStatus = static_cast<uint8_t>(readings.powerStatus);
    ad.stateOfCharge = readings.stateOfCharge;
    ad.runtime = readings.runtime;
    if (isWifiFamily(snapshot.hardwareRevision)) ad.rssi = readings.rssi;
    return ad;
}

}  // namespace sim
