#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "zelmor_config.h"

namespace sim {

/// Power status byte of the monitor data and the log records (the names are
/// lib/power_status's).
enum class PowerStatus : uint8_t {
    Off = 0,
    On = 1,
    LowVoltage = 2,
    OverCurrent = 3,
    HighVoltage = 4,
    FuelGauge = 5,
    NoCharge = 6,
    LowTemperature = 7,
    HighTemperature = 8,
};

/// What the device measures at one moment, as the rules see it.
struct ProtectionInputs {
    double voltage1 = 0;
    double voltage2 = 0;  // NaN without a second voltage input
    double current = 0;   // A, positive while charging
    double temperature = 0;
    double stateOfCharge = 0;  // %
};

/// The device's relay, driven by the configuration's cut-offs or, with the
/// generator control on, by its start and stop rules. Pure: it is fed the
/// measurements and the time (milliseconds, never going back) and answers
/// where the relay is and which power status the device shows.
class ProtectionRules {
public:
    /// LVD, HVD, OCD, LTD, HTD and the state-of-charge cut-off.
    static constexpr size_t kCutOffCount = 6;

    /// The relay as it is at power-on.
    ProtectionRules(ZelmorConfig const& config, bool relayOn);

    /// A new configuration. A cut-off in force stays until the new thresholds
    /// clear it (a disabled one clears at once); the delays start over.
    void configure(ZelmorConfig const& config);
    /// The user's switch (command 0x14). Switching on clears every cut-off,
    /// so one whose cause is still there trips again after its filter.
    void switchRelay(bool on);
    void update(int64_t timeMs, ProtectionInputs const& inputs);

    /// Whether the output is on: the loads connected, or the generator running.
    bool outputOn() const { return outputOn_; }
    /// Whether the relay coil is energised: the output, unless the relay logic
    /// is inverted for a normally-closed contact.
    bool coilEnergised() const { return outputOn_ != config_.invertRelayLogic(); }
    bool generatorControl() const { return config_.generatorEnable(); }
    /// What the user last switched the relay to.
    bool switchedOn() const { return switchedOn_; }
    PowerStatus powerStatus() const;

private:
    /// One cut-off's progress: since when its cause has held, and whether it
    /// has opened the relay.
    struct CutOff {
        std::optional<int64_t> causeSince;
        bool tripped = false;
    };

    void updateCutOffs(int64_t timeMs, ProtectionInputs const& inputs);
    void updateGenerator(int64_t timeMs, ProtectionInputs const& inputs);

    ZelmorConfig config_;
    bool switchedOn_;
    bool outputOn_;
    std::array<CutOff, kCutOffCount> cutOffs_{};
    std::optional<PowerStatus> lastCutOff_;
    std::optional<int64_t> clearSince_;
    std::optional<int64_t> generatorStartSince_;
    std::optional<int64_t> generatorStopSince_;
};

}  // namespace sim
