#pragma once

#include <cstdint>

namespace sim {

enum class BatteryChemistry : uint8_t { LiFePO4, LeadAcid };

struct BatteryModelConfig {
    BatteryChemistry chemistry = BatteryChemistry::LiFePO4;
    double capacityAh = 200;
    bool hasSecondVoltage = true;
    uint64_t seed = 1;
};

/// The true electrical state of the house battery at one moment, before any
/// measurement error of the device. Current is positive while charging.
struct BatteryReading {
    double voltage1 = 0;
    double voltage2 = 0;  // NaN without a second voltage input
    double current = 0;
    double temperature = 0;
    double stateOfCharge = 0;  // 0..1
};

/// A house battery on a boat or camper: solar charging by day, household loads
/// with an evening peak, a starter battery on the second input, and what the
/// monitor's relay switches: the loads, or a generator that charges. Everything
/// but the state of charge and the relay is a function of time and seed, so the
/// result depends little on how finely the caller steps it.
class BatteryModel {
public:
    BatteryModel(BatteryModelConfig const& config, int64_t startTime);

    int64_t time() const { return time_; }
    double capacityAh() const { return config_.capacityAh; }
    BatteryReading reading() const;

    /// Integrates `seconds` forward with the current at the start of the step.
    void advance(int64_t seconds);
    /// What the relay does from now on: the household loads draw only while
    /// connected, and a running generator charges at a quarter of the capacity.
    void switchOutputs(bool loadsConnected, bool generatorRunning);

private:
    double solarCurrent(int64_t t) const;
    double loadCurrent(int64_t t) const;
    double netCurrent(int64_t t) const;
    double openCircuitVoltage() const;
    double chargeOverpotential(double current) const;
    double temperature(int64_t t) const;
    double starterVoltage(int64_t t) const;
    double noise(uint64_t channel, int64_t index) const;
    double smoothNoise(uint64_t channel, int64_t t, int64_t period) const;

    BatteryModelConfig config_;
    int64_t time_;
    double stateOfCharge_;
    bool loadsConnected_ = true;
    bool generatorRunning_ = false;
};

}  // namespace sim
