#include "device_statistics.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr double kSecondsPerHour = 3600;
// 1 mAh is 3.6 ampere-seconds, 1 mWh is 3.6 watt-seconds.
constexpr double kMilliHour = 3.6;
constexpr double kMinimumCycleDepthAh = 0.1;

MonitorExtremes extremesOf(MeasuredSample const& s) {
    return {s.voltage1,    s.voltage1,   s.voltage2, s.voltage2, std::max(0.0, -s.current), std::max(0.0, s.current),
            s.temperature, s.temperature};
}

}  // namespace

DeviceStatistics::DeviceStatistics(double capacityAh, double stateOfCharge, MeasuredSample const& first)
    : capacityAh_(capacityAh), stateOfCharge_(stateOfCharge) {
    resetStatistics(first);
}

void DeviceStatistics::observe(MeasuredSample const& s) {
    MonitorExtremes& e = extremes_;
    e.minVoltage1 = std::min(e.minVoltage1, s.voltage1);
    e.maxVoltage1 = std::max(e.maxVoltage1, s.voltage1);
    // fmin/fmax keep NaN out unless both are NaN: a missing second input stays NaN.
    e.minVoltage2 = std::fmin(e.minVoltage2, s.voltage2);
    e.maxVoltage2 = std::fmax(e.maxVoltage2, s.voltage2);
    e.peakDischargeCurrent = std::max(e.peakDischargeCurrent, -s.current);
    e.peakChargeCurrent = std::max(e.peakChargeCurrent, s.current);
    e.minTemperature = std::min(e.minTemperature, s.temperature);
    e.maxTemperature = std::max(e.maxTemperature, s.temperature);

    FuelGaugeHistory& g = gauge_;
    g.minBatteryVoltage = std::min(g.minBatteryVoltage, s.voltage1);
    g.maxBatteryVoltage = std::max(g.maxBatteryVoltage, s.voltage1);
    g.maxDischargeCurrent = std::max(g.maxDischargeCurrent, -s.current);
    g.maxChargeCurrent = std::max(g.maxChargeCurrent, s.current);
}

void DeviceStatistics::integrate(MeasuredSample const& s, double seconds) {
    coulombAs_ += s.current * seconds;
    energyWs_ += s.power * seconds;

    FuelGaugeHistory& g = gauge_;
    if (s.current < 0) {
        g.dischargedAs -= s.current * seconds;
        g.dischargedWs -= s.power * seconds;
    } else {
        g.chargedAs += s.current * seconds;
        g.chargedWs += s.power * seconds;
    }
    if (g.secondsSinceFullCharge) *g.secondsSinceFullCharge += seconds;

    stateOfCharge_ = std::clamp(stateOfCharge_ + s.current * seconds / kSecondsPerHour / capacityAh_, 0.0, 1.0);
    if (s.batteryFull) synchronize();
    double const depth = (1 - stateOfCharge_) * capacityAh_;
    cycleDepthAh_ = std::max(cycleDepthAh_, depth);
    g.deepestDischargeAh = std::max(g.deepestDischargeAh, depth);
}

void DeviceStatistics::resetStatistics(MeasuredSample const& now) {
    extremes_ = extremesOf(now);
    std::optional<double> const sinceFull = gauge_.secondsSinceFullCharge;
    gauge_ = FuelGaugeHistory{};
    gauge_.secondsSinceFullCharge = sinceFull;
    gauge_.fullChargeCapacityAh = capacityAh_;
    gauge_.minBatteryVoltage = now.voltage1;
    gauge_.maxBatteryVoltage = now.voltage1;
    gauge_.maxDischargeCurrent = std::max(0.0, -now.current);
    gauge_.maxChargeCurrent = std::max(0.0, now.current);
}

void DeviceStatistics::synchronize() {
    stateOfCharge_ = 1;
    gauge_.secondsSinceFullCharge = 0;
    // While the battery floats at full every step reports it full; only a real
    // discharge in between makes a cycle worth recording.
    if (cycleDepthAh_ > kMinimumCycleDepthAh) gauge_.lastDischargeDepthAh = cycleDepthAh_;
    cycleDepthAh_ = 0;
}

int64_t DeviceStatistics::coulombMeterMah() const { return std::llround(coulombAs_ / kMilliHour); }

int64_t DeviceStatistics::energyMeterMwh() const { return std::llround(energyWs_ / kMilliHour); }

uint32_t DeviceStatistics::fullDischargeCycles() const {
    return static_cast<uint32_t>(gauge_.dischargedAs / kSecondsPerHour / capacityAh_);
}

}  // namespace sim
