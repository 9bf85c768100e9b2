#pragma once

#include <cstdint>
#include <optional>

namespace sim {

/// One reading as the device measured it (current positive while charging).
struct MeasuredSample {
    double voltage1 = 0;
    double voltage2 = 0;  // NaN without a second voltage input
    double current = 0;
    double power = 0;
    double temperature = 0;
    bool batteryFull = false;  // the charger has tapered off at full charge
};

/// Extremes since the statistics were last reset (command 0x02). Discharge
/// and charge peaks are magnitudes.
struct MonitorExtremes {
    double minVoltage1 = 0;
    double maxVoltage1 = 0;
    double minVoltage2 = 0;
    double maxVoltage2 = 0;
    double peakDischargeCurrent = 0;
    double peakChargeCurrent = 0;
    double minTemperature = 0;
    double maxTemperature = 0;
};

/// The battery's history as the fuel gauge keeps it (command 0x03).
struct FuelGaugeHistory {
    std::optional<double> secondsSinceFullCharge;  // unknown until the first full charge
    double fullChargeCapacityAh = 0;
    double dischargedAs = 0;  // ampere-seconds
    double dischargedWs = 0;  // watt-seconds
    double chargedAs = 0;
    double chargedWs = 0;
    double minBatteryVoltage = 0;
    double maxBatteryVoltage = 0;
    double maxDischargeCurrent = 0;
    double maxChargeCurrent = 0;
    double lastDischargeDepthAh = 0;  // deepest point below full of the last cycle ended by a full charge
    double deepestDischargeAh = 0;
};

/// Meters, extremes and the fuel gauge: everything the device derives from its
/// measurements over time.
class DeviceStatistics {
public:
    DeviceStatistics(double capacityAh, double stateOfCharge, MeasuredSample const& first);

    /// Takes a reading into the extremes.
    void observe(MeasuredSample const& sample);
    /// Accumulates a reading held for `seconds` into the meters and the gauge.
    void integrate(MeasuredSample const& sample, double seconds);

    void resetEnergyMeter() { energyWs_ = 0; }
    void resetCoulombMeter() { coulombAs_ = 0; }
    /// Restarts the extremes and the fuel gauge counters from `now`; the state
    /// of charge and the time since full charge are kept.
    void resetStatistics(MeasuredSample const& now);
    /// Declares the battery full, which ends a discharge cycle.
    void synchronize();

    int64_t coulombMeterMah() const;
    int64_t energyMeterMwh() const;
    /// The gauge's estimate, 0..1.
    double stateOfCharge() const { return stateOfCharge_; }
    double remainingAh() const { return stateOfCharge_ * capacityAh_; }
    uint32_t fullDischargeCycles() const;
    MonitorExtremes const& extremes() const { return extremes_; }
    FuelGaugeHistory const& fuelGauge() const { return gauge_; }

private:
    double capacityAh_;
    double stateOfCharge_;
    double coulombAs_ = 0;
    double energyWs_ = 0;
    double cycleDepthAh_ = 0;  // deepest point below full in the running cycle
    MonitorExtremes extremes_;
    FuelGaugeHistory gauge_;
};

}  // namespace sim
