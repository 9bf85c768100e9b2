#include "factory_config.h"

#include <algorithm>
#include <iterator>

#include "hardware_revision.h"

namespace sim {

namespace {

constexpr uint8_t kIntegratedShunt = 0;
constexpr uint8_t kTemperatureSensorTerminal = 1;
constexpr uint8_t kEverySixtySeconds = 7;
constexpr uint8_t kLithiumIronPhosphate = 2;
constexpr uint8_t kTwelveVolts = 1;
constexpr size_t kFlagByte = 36;
constexpr uint8_t kReservedFlagBits = 0xA4;  // bit 0 is chargeManagerEnable
constexpr size_t kReservedTail = 100;
constexpr uint8_t kReservedTailBytes[] = {0x5A, 0xC3, 0x96, 0x3C};

}  // namespace

ZelmorConfig factoryConfig(uint8_t hardwareRevision) {
    ZelmorConfig c;
    c.timeZone("UTC");
    // A model without a second input has nothing to measure there.
    c.disableVoltage2(!hasSecondVoltage(hardwareRevision));
    // A device on a network sets its clock from it.
    c.setTimeAutomatically(isNetworkModel(hardwareRevision));
    c.relayOnAtStartup(true);
    c.wifiWatchdog(isWifiFamily(hardwareRevision));

    c.shunt(kIntegratedShunt);
    c.maxShuntCurrent(500);
    c.relayConnectFilter(1000);
    c.mfTerminalFunction(kTemperatureSensorTerminal);
    c.dataLoggingMode(kEverySixtySeconds);

    c.lvdDisconnectThreshold(11.5);
    c.lvdConnectThreshold(12.5);
    c.lvdDisconnectFilter(5000);
    c.hvdDisconnectThreshold(14.8);
    c.hvdConnectThreshold(14.2);
    c.hvdDisconnectFilter(5000);
    c.ocdTripThreshold(100);
    c.ocdTripFilter(1000);
    c.autoOffHours(1);
    c.autoOnHours(1);
    c.ltdDisconnectThreshold(-10);
    c.ltdConnectThreshold(-5);
    c.ltdDisconnectFilter(5000);
    c.htdDisconnectThreshold(55);
    c.htdConnectThreshold(50);
    c.htdDisconnectFilter(5000);

    c.fuelGaugeEnable(true);
    c.batteryChemistry(kLithiumIronPhosphate);
    c.fuelGaugeBatteryVoltage(kTwelveVolts);
    c.fuelGaugeCellCount(4);
    c.fuelGaugeCapacity(100);
    c.fullChargeVoltage(14.2);
    c.fullChargeCurrent(2);
    c.fullChargeFilter(60);
    c.disconnectSocThreshold(20);
    c.reconnectSocThreshold(30);

    c.generatorOnVoltage(12.0);
    c.generatorOnVoltageFilter(60000);
    c.generatorOnSoc(30);
    c.generatorOffVoltage(14.0);
    c.generatorOffSoc(90);
    c.generatorOffDelay(300);
    c.chargeManagerBatteryVoltage(kTwelveVolts);
    c.chargeManagerCellCount(4);
    c.chargeManagerCapacity(100);

    auto& image = c.image();
    image[kFlagByte] |= kReservedFlagBits;
    std::copy(std::begin(kReservedTailBytes), std::end(kReservedTailBytes), image.begin() + kReservedTail);
    return c;
}

}  // namespace sim
