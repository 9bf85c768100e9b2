#include "battery_model.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <utility>

namespace sim {

namespace {

constexpr double kSecondsPerHour = 3600;
constexpr int64_t kSecondsPerDay = 86400;
constexpr double kTwoPi = 6.283185307179586;

// Noise channels: each independent random quantity draws from its own stream.
enum : uint64_t {
    kStartCharge,
    kWeather,
    kClouds,
    kLoadWander,
    kSpikeChance,
    kSpikeSize,
    kTemperatureWalk,
    kStarterRest,
    kLoadRipple
};

// Open-circuit voltage over state of charge, linear in between.
using CurvePoint = std::pair<double, double>;
constexpr CurvePoint kLiFePO4Curve[] = {
    {0.00, 11.60}, {0.05, 12.50}, {0.10, 12.90}, {0.20, 13.05}, {0.30, 13.12}, {0.40, 13.17}, {0.50, 13.20},
    {0.60, 13.23}, {0.70, 13.26}, {0.80, 13.30}, {0.90, 13.35}, {0.97, 13.45}, {1.00, 13.60},
};
constexpr CurvePoint kLeadAcidCurve[] = {
    {0.00, 11.60}, {0.25, 12.00}, {0.50, 12.25}, {0.75, 12.50}, {1.00, 12.75},
};

struct ChemistryTraits {
    std::span<CurvePoint const> curve;
    double internalResistance;       // ohm, for a 200 Ah bank
    double bulkOverpotential;        // volts added by any substantial charge current
    double absorptionOverpotential;  // volts added near full
    double absorptionStart;          // state of charge where absorption begins
};

// Indexed by BatteryChemistry.
constexpr ChemistryTraits kChemistries[] = {
    {kLiFePO4Curve, 0.008, 0.05, 0.55, 0.90},
    {kLeadAcidCurve, 0.012, 0.50, 1.00, 0.80},
};

ChemistryTraits const& traitsOf(BatteryChemistry chemistry) { return kChemistries[static_cast<size_t>(chemistry)]; }

double interpolate(std::span<CurvePoint const> curve, double x) {
    if (x <= curve.front().first) return curve.front().second;
    for (size_t i = 1; i < curve.size(); ++i) {
        auto const [x1, y1] = curve[i];
        if (x <= x1) {
            auto const [x0, y0] = curve[i - 1];
            return y0 + (y1 - y0) * (x - x0) / (x1 - x0);
        }
    }
    return curve.back().second;
}

double smoothstep(double edge0, double edge1, double x) {
    double const t = std::clamp((x - edge0) / (edge1 - edge0), 0.0, 1.0);
    return t * t * (3 - 2 * t);
}

double bell(double hour, double centre, double width) {
    double const z = (hour - centre) / width;
    return std::exp(-z * z);
}

uint64_t splitMix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31);
}

int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

double hourOfDay(int64_t t) {
    return static_cast<double>(t - floorDiv(t, kSecondsPerDay) * kSecondsPerDay) / kSecondsPerHour;
}

constexpr double kPeakSolarCurrent = 22;
// A generator's charger, in capacities per hour.
constexpr double kGeneratorChargeRate = 0.25;
// Charging is limited to half the capacity per hour, tapering to nothing as
// the bank gets full, so the state of charge settles at 100 %.
constexpr double kTaperWindow = 0.03;

}  // namespace

BatteryModel::BatteryModel(BatteryModelConfig const& config, int64_t startTime)
    : config_(config), time_(startTime), stateOfCharge_(0.55 + 0.3 * noise(kStartCharge, 0)) {}

double BatteryModel::noise(uint64_t channel, int64_t index) const {
    uint64_t const h =
        splitMix(splitMix(config_.seed ^ (channel * 0xD6E8FEB86659FD93ULL)) + static_cast<uint64_t>(index));
    return static_cast<double>(h >> 11) * 0x1.0p-53;
}

double BatteryModel::smoothNoise(uint64_t channel, int64_t t, int64_t period) const {
    int64_t const knot = floorDiv(t, period);
    double const f = static_cast<double>(t - knot * period) / static_cast<double>(period);
    double const a = noise(channel, knot);
    double const b = noise(channel, knot + 1);
    return a + (b - a) * smoothstep(0, 1, f);
}

double BatteryModel::solarCurrent(int64_t t) const {
    double const sun = bell(hourOfDay(t), 12.5, 3.0);
    if (sun < 0.01) return 0;
    double const weather = 0.45 + 0.55 * noise(kWeather, floorDiv(t, kSecondsPerDay));
    double const clouds = 0.7 + 0.3 * smoothNoise(kClouds, t, 600);
    return kPeakSolarCurrent * sun * weather * clouds;
}

double BatteryModel::loadCurrent(int64_t t) const {
    double const hour = hourOfDay(t);
    double load =
        1.2 + 0.6 * smoothNoise(kLoadWander, t, 3600) + 6.5 * bell(hour, 19.5, 1.4) + 2.5 * bell(hour, 7.5, 0.8);
    // A kettle, a pump or an inverter load now and then, a minute at a time.
    int64_t const minute = floorDiv(t, 60);
    if (noise(kSpikeChance, minute) < 0.01) load += 10 + 30 * noise(kSpikeSize, minute);
    // Inverter and fridge ripple: a live reading is never quite the one before.
    return load + 0.1 * (noise(kLoadRipple, t) - 0.5);
}

double BatteryModel::netCurrent(int64_t t) const {
    double const generator = generatorRunning_ ? kGeneratorChargeRate * config_.capacityAh : 0.0;
    double current = solarCurrent(t) + generator - (loadsConnected_ ? loadCurrent(t) : 0.0);
    if (current > 0) {
        double const limit = 0.5 * config_.capacityAh * std::clamp((1 - stateOfCharge_) / kTaperWindow, 0.0, 1.0);
        current = std::min(current, limit);
    }
    return current;
}

double BatteryModel::openCircuitVoltage() const {
    return interpolate(traitsOf(config_.chemistry).curve, stateOfCharge_);
}

double BatteryModel::chargeOverpotential(double current) const {
    if (current <= 0) return 0;
    ChemistryTraits const& traits = traitsOf(config_.chemistry);
    return traits.bulkOverpotential * std::min(1.0, current / 10) +
           traits.absorptionOverpotential * smoothstep(traits.absorptionStart, 1.0, stateOfCharge_) *
               std::min(1.0, current / 2);
}

double BatteryModel::temperature(int64_t t) const {
    double const daily = 3.0 * std::sin(kTwoPi * (hourOfDay(t) - 9) / 24);
    double const walk = 6.0 * (smoothNoise(kTemperatureWalk, t, 6 * 3600) - 0.5);
    return 20 + daily + walk;
}

double BatteryModel::starterVoltage(int64_t t) const {
    if (!config_.hasSecondVoltage) return std::numeric_limits<double>::quiet_NaN();
    double const rest = 12.6 + 0.15 * smoothNoise(kStarterRest, t, kSecondsPerDay);
    // The charge splitter tops the starter battery up while the sun shines.
    return rest + (13.65 - rest) * std::clamp(solarCurrent(t) / 4, 0.0, 1.0);
}

BatteryReading BatteryModel::reading() const {
    BatteryReading r;
    r.current = netCurrent(time_);
    double const resistance = traitsOf(config_.chemistry).internalResistance * 200 / config_.capacityAh;
    r.voltage1 = openCircuitVoltage() + r.current * resistance + chargeOverpotential(r.current);
    r.voltage2 = starterVoltage(time_);
    r.temperature = temperature(time_);
    r.stateOfCharge = stateOfCharge_;
    return r;
}

void BatteryModel::advance(int64_t seconds) {
    if (seconds <= 0) return;
    double const current = netCurrent(time_);
    stateOfCharge_ += current * static_cast<double>(seconds) / kSecondsPerHour / config_.capacityAh;
    stateOfCharge_ = std::clamp(stateOfCharge_, 0.0, 1.0);
    time_ += seconds;
}

void BatteryModel::switchOutputs(bool loadsConnected, bool generatorRunning) {
    loadsConnected_ = loadsConnected;
    generatorRunning_ = generatorRunning;
}

}  // namespace sim
