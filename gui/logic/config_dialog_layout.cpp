#include "config_dialog_layout.h"

namespace {

using K = ConfigKey;

constexpr ConfigRow kGeneral[] = {
    {K::timeZone, "Device Timezone"},
    {K::shunt, "Shunt Specifications"},
    {K::maxShuntCurrent, "Max. Shunt Current (Amperes)"},
    {K::disableVoltage2, "Disable Voltage 2"},
    {K::useVoltage2ForPower, "Use Voltage 2 for Power"},
    {K::flipCurrentSign, "Flip Current Sign"},
    {K::setTimeAutomatically, "Set Time Automatically"},
    {K::relayOnAtStartup, "Turn On at startup", "Relay"},
    {K::latchRelayOn, "Latch Relay On"},
    {K::invertRelayLogic, "Invert Relay Logic"},
    {K::relayConnectFilter, "Connect Filter (milliseconds)"},
    {K::mfTerminalFunction, "MF Terminal Function", "Other"},
    {K::dataLoggingMode, "Data Logging Mode"},
};

constexpr ConfigRow kNetwork[] = {
    {K::keepEthernetLedOn, "Keep Ethernet Link LED On"},      {K::keepAccessPointOn, "Keep Access Point On"},
    {K::disableWifiPowerSaving, "Disable WiFi Power Saving"}, {K::wifiWatchdog, "WiFi Watchdog"},
    {K::useWithoutInternet, "Use Without Internet"},
};

constexpr ConfigRow kLowVoltage[] = {
    {K::lvdEnable, "LVD Enable"},
    {K::lvdUseVoltage2, "Use Voltage 2"},
    {K::lvdDisconnectThreshold, "LVD Disconnect Threshold (V)"},
    {K::lvdConnectThreshold, "LVD Connect Threshold (V)"},
    {K::lvdDisconnectFilter, "LVD Disconnect Filter (milliseconds)"},
};

constexpr ConfigRow kHighVoltage[] = {
    {K::hvdEnable, "HVD Enable"},
    {K::hvdUseVoltage2, "Use Voltage 2"},
    {K::hvdDisconnectThreshold, "HVD Disconnect Threshold (V)"},
    {K::hvdConnectThreshold, "HVD Connect Threshold (V)"},
    {K::hvdDisconnectFilter, "HVD Disconnect Filter (milliseconds)"},
};

constexpr ConfigRow kOverCurrent[] = {
    {K::ocdEnable, "OCD Enable"},
    {K::ocdTripThreshold, "OCD Trip Threshold (A)"},
    {K::ocdTripFilter, "OCD Trip Filter (milliseconds)"},
};

constexpr ConfigRow kTimers[] = {
    {K::autoOffEnable, "Auto-OFF Timer Enable", "Auto-OFF"},
    {K::autoOffHours, "Hours"},
    {K::autoOffMinutes, "Minutes"},
    {K::autoOffSeconds, "Seconds"},
    {K::autoOnEnable, "Auto-ON Timer Enable", "Auto-ON"},
    {K::autoOnHours, "Hours"},
    {K::autoOnMinutes, "Minutes"},
    {K::autoOnSeconds, "Seconds"},
};

// The temperature thresholds are whole degrees Celsius; their labels keep the
// "(V)" that users know them by.
constexpr ConfigRow kLowTemperature[] = {
    {K::ltdEnable, "LTD Enable"},
    {K::ltdDisconnectThreshold, "LTD Disconnect Threshold (V)"},
    {K::ltdConnectThreshold, "LTD Connect Threshold (V)"},
    {K::ltdDisconnectFilter, "LTD Disconnect Filter (milliseconds)"},
};

constexpr ConfigRow kHighTemperature[] = {
    {K::htdEnable, "HTD Enable"},
    {K::htdDisconnectThreshold, "HTD Disconnect Threshold (V)"},
    {K::htdConnectThreshold, "HTD Connect Threshold (V)"},
    {K::htdDisconnectFilter, "HTD Disconnect Filter (milliseconds)"},
};

constexpr ConfigRow kFuelGauge[] = {
    {K::fuelGaugeEnable, "FG Enable"},
    {K::fuelGaugeUseVoltage2, "Use Voltage 2"},
    {K::batteryChemistry, "Battery Chemistry", "Battery"},
    {K::fuelGaugeBatteryVoltage, "Battery Voltage"},
    {K::fuelGaugeCellCount, "Battery Cell Count"},
    {K::fuelGaugeCapacity, "Battery Capacity (Ah)"},
    {K::manualFullChargeDetection, "Manual Full Charge Detection", "Full Charge"},
    {K::fullChargeVoltage, "Full Charge Detection Voltage Threshold (V)"},
    {K::fullChargeCurrent, "Full Charge Detection Current Threshold (A)"},
    {K::fullChargeFilter, "Full Charge Detection Filter (seconds)"},
    {K::disconnectOnSoc, "Disconnect on Battery SoC", "State of Charge"},
    {K::disconnectSocThreshold, "Disconnect On Battery SoC Threshold (%)"},
    {K::reconnectOnSoc, "Re-connect on Battery SoC"},
    {K::reconnectSocThreshold, "Re-connect On Battery SoC Threshold (%)"},
};

constexpr ConfigRow kGenerator[] = {
    {K::generatorEnable, "Generator Control Enable"},
    {K::generatorUseVoltage2, "Use Voltage 2"},
    {K::generatorOnByVoltage, "Turn On Based on Voltage", "Turn On"},
    {K::generatorOnVoltage, "Turn On Voltage Threshold (V)"},
    {K::generatorOnVoltageFilter, "Turn On Voltage Filter (milliseconds)"},
    {K::generatorOnBySoc, "Turn On Based on SoC"},
    {K::generatorOnSoc, "Turn On SoC Threshold (%)"},
    {K::generatorOffByVoltage, "Turn Off Based on Voltage", "Turn Off"},
    {K::generatorOffVoltage, "Turn Off Voltage Threshold (V)"},
    {K::generatorOffBySoc, "Turn Off Based on SoC"},
    {K::generatorOffSoc, "Turn Off SoC Threshold (%)"},
    {K::generatorOffDelay, "Turn Off Delay (minutes)"},
};

constexpr ConfigRow kChargeManager[] = {
    {K::chargeManagerEnable, "LiFePO Charge Manager Enable"},
    {K::chargeManagerBatteryVoltage, "Battery Voltage"},
    {K::chargeManagerCellCount, "Battery Cell Count"},
    {K::chargeManagerCapacity, "Battery Capacity (Ah)"},
};

constexpr ConfigPage kPages[] = {
    {"General", kGeneral},
    {"Network", kNetwork},
    {"Low Voltage Disconnect", kLowVoltage},
    {"High Voltage Disconnect", kHighVoltage},
    {"Over-current Disconnect", kOverCurrent},
    {"Auto-OFF / Auto-ON Timer", kTimers},
    {"Low Temperature Disconnect", kLowTemperature},
    {"High Temperature Disconnect", kHighTemperature},
    {"Battery Fuel Gauge", kFuelGauge},
    {"Generator Control", kGenerator},
    {"LiFePO Charge Manager", kChargeManager},
};

}  // namespace

std::span<ConfigPage const> configPages() { return kPages; }
