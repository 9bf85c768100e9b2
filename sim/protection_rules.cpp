#include "protection_rules.h"

#include <cmath>
#include <cstddef>
#include <iterator>

namespace sim {

namespace {

using Config = ZelmorConfig const&;
using Inputs = ProtectionInputs const&;

// The voltage a rule watches: the second input when the rule asks for it and
// the model measures one.
double watchedVoltage(Inputs in, bool second) { return second && !std::isnan(in.voltage2) ? in.voltage2 : in.voltage1; }

/// One cut-off: when it is on, what trips it once it has held for its filter
/// time, and what closes the relay again.
struct CutOffRule {
    PowerStatus status;
    bool (*enabled)(Config);
    bool (*cause)(Config, Inputs);
    bool (*cleared)(Config, Inputs);
    double (*filterMs)(Config);
};

// In the order the power status names them when several hold at once.
constexpr CutOffRule kCutOffRules[] = {
    {PowerStatus::LowVoltage, [](Config c) { return c.lvdEnable(); },
     [](Config c, Inputs in) { return watchedVoltage(in, c.lvdUseVoltage2()) < c.lvdDisconnectThreshold(); },
     [](Config c, Inputs in) { return watchedVoltage(in, c.lvdUseVoltage2()) >= c.lvdConnectThreshold(); },
     [](Config c) { return c.lvdDisconnectFilter(); }},
    {PowerStatus::HighVoltage, [](Config c) { return c.hvdEnable(); },
     [](Config c, Inputs in) { return watchedVoltage(in, c.hvdUseVoltage2()) > c.hvdDisconnectThreshold(); },
     [](Config c, Inputs in) { return watchedVoltage(in, c.hvdUseVoltage2()) <= c.hvdConnectThreshold(); },
     [](Config c) { return c.hvdDisconnectFilter(); }},
    // With the relay open the current that tripped it is gone, so nothing
    // measured can tell that the fault is: only the user closes it again.
    {PowerStatus::OverCurrent, [](Config c) { return c.ocdEnable(); },
     [](Config c, Inputs in) { return std::fabs(in.current) > c.ocdTripThreshold(); },
     [](Config, Inputs) { return false; }, [](Config c) { return c.ocdTripFilter(); }},
    {PowerStatus::LowTemperature, [](Config c) { return c.ltdEnable(); },
     [](Config c, Inputs in) { return in.temperature < c.ltdDisconnectThreshold(); },
     [](Config c, Inputs in) { return in.temperature >= c.ltdConnectThreshold(); },
     [](Config c) { return c.ltdDisconnectFilter(); }},
    {PowerStatus::HighTemperature, [](Config c) { return c.htdEnable(); },
     [](Config c, Inputs in) { return in.temperature > c.htdDisconnectThreshold(); },
     [](Config c, Inputs in) { return in.temperature <= c.htdConnectThreshold(); },
     [](Config c) { return c.htdDisconnectFilter(); }},
    // The state of charge moves slowly and is already an average: no filter.
    {PowerStatus::FuelGauge, [](Config c) { return c.disconnectOnSoc(); },
     [](Config c, Inputs in) { return in.stateOfCharge <= c.disconnectSocThreshold(); },
     [](Config c, Inputs in) { return c.reconnectOnSoc() && in.stateOfCharge >= c.reconnectSocThreshold(); },
     [](Config) { return 0.0; }},
};
static_assert(std::size(kCutOffRules) == ProtectionRules::kCutOffCount);

constexpr int64_t kMillisecondsPerSecond = 1000;

bool reached(int64_t since, int64_t now, double delayMs) { return static_cast<double>(now - since) >= delayMs; }

}  // namespace

ProtectionRules::ProtectionRules(ZelmorConfig const& config, bool relayOn)
    : config_(config), switchedOn_(relayOn), outputOn_(relayOn && !config.generatorEnable()) {}

void ProtectionRules::configure(ZelmorConfig const& config) {
    if (config.generatorEnable() != config_.generatorEnable()) {
        // The generator starts stopped; the loads come back as the user left them.
        outputOn_ = !config.generatorEnable() && switchedOn_;
        cutOffs_ = {};
        lastCutOff_.reset();
    }
    config_ = config;
    clearSince_.reset();
    generatorStartSince_.reset();
    generatorStopSince_.reset();
}

void ProtectionRules::switchRelay(bool on) {
    switchedOn_ = on;
    // The generator control alone runs a generator: the switch waits until it is off.
    if (config_.generatorEnable()) return;
    outputOn_ = on;
    cutOffs_ = {};
    lastCutOff_.reset();
    clearSince_.reset();
}

void ProtectionRules::update(int64_t timeMs, ProtectionInputs const& inputs) {
    if (config_.generatorEnable())
        updateGenerator(timeMs, inputs);
    else
        updateCutOffs(timeMs, inputs);
}

void ProtectionRules::updateCutOffs(int64_t timeMs, ProtectionInputs const& inputs) {
    bool tripped = false;
    for (size_t i = 0; i < cutOffs_.size(); ++i) {
        CutOffRule const& rule = kCutOffRules[i];
        CutOff& state = cutOffs_[i];
        if (!rule.enabled(config_)) {
            state = {};
        } else if (state.tripped) {
            if (rule.cleared(config_, inputs)) state = {};
        } else if (!rule.cause(config_, inputs)) {
            state.causeSince.reset();
        } else {
            if (!state.causeSince) state.causeSince = timeMs;
            if (reached(*state.causeSince, timeMs, rule.filterMs(config_))) {
                state.tripped = true;
                lastCutOff_ = rule.status;
            }
        }
        tripped = tripped || state.tripped;
    }
    if (!switchedOn_ || tripped) {
        outputOn_ = false;
        clearSince_.reset();
        return;
    }
    if (outputOn_) return;
    // Every cause has gone: the relay closes once that has lasted the connect filter.
    if (!clearSince_) clearSince_ = timeMs;
    if (reached(*clearSince_, timeMs, config_.relayConnectFilter())) {
        outputOn_ = true;
        lastCutOff_.reset();
        clearSince_.reset();
    }
}

void ProtectionRules::updateGenerator(int64_t timeMs, ProtectionInputs const& inputs) {
    double const voltage = watchedVoltage(inputs, config_.generatorUseVoltage2());
    bool const low = config_.generatorOnByVoltage() && voltage < config_.generatorOnVoltage();
    if (!low)
        generatorStartSince_.reset();
    else if (!generatorStartSince_)
        generatorStartSince_ = timeMs;
    bool const start = (low && reached(*generatorStartSince_, timeMs, config_.generatorOnVoltageFilter())) ||
                       (config_.generatorOnBySoc() && inputs.stateOfCharge <= config_.generatorOnSoc());
    bool const stop = (config_.generatorOffByVoltage() && voltage >= config_.generatorOffVoltage()) ||
                      (config_.generatorOffBySoc() && inputs.stateOfCharge >= config_.generatorOffSoc());
    if (!outputOn_) {
        outputOn_ = start;
        generatorStopSince_.reset();
        return;
    }
    if (!stop) {
        generatorStopSince_.reset();
        return;
    }
    // The generator runs on for the turn-off delay (seconds), as a charger
    // finishing its absorption would.
    if (!generatorStopSince_) generatorStopSince_ = timeMs;
    if (reached(*generatorStopSince_, timeMs, config_.generatorOffDelay() * kMillisecondsPerSecond)) outputOn_ = false;
}

PowerStatus ProtectionRules::powerStatus() const {
    if (config_.generatorEnable() || !switchedOn_) return outputOn_ ? PowerStatus::On : PowerStatus::Off;
    for (size_t i = 0; i < cutOffs_.size(); ++i)
        if (cutOffs_[i].tripped) return kCutOffRules[i].status;
    // Open after a cut-off, waiting out the connect filter: still the cut-off's.
    if (!outputOn_ && lastCutOff_) return *lastCutOff_;
    return outputOn_ ? PowerStatus::On : PowerStatus::Off;
}

}  // namespace sim
