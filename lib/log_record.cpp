#include "log_record.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "byte_io.h"
#include "hardware_revision.h"

namespace {

// Byte offsets of the fields in one stored record; docs/log-record-format.md
// draws both layouts. The 24-bit fields always have a byte of the same record
// before them, so the decoder loads them as the top three bytes of a 32-bit
// word and sign-extends with one arithmetic shift.
struct LogLayout {
    size_t size;
    size_t voltage1;
    size_t voltage2;
    size_t current;
    size_t power;
    size_t temperature;
    size_t stateOfCharge;
    size_t powerStatus;
};

constexpr LogLayout kTwoVoltageLayout{18, 4, 6, 8, 11, 14, 16, 17};
constexpr LogLayout kOneVoltageLayout{16, 4, 0, 6, 9, 12, 14, 15};

// Fields follow one another with no gap, starting after the 4-byte time.
constexpr bool isPacked(LogLayout const& l, size_t voltageBytes) {
    return l.voltage1 == sizeof(uint32_t) && l.current == l.voltage1 + voltageBytes && l.power == l.current + 3 &&
           l.temperature == l.power + 3 && l.stateOfCharge == l.temperature + 2 &&
           l.powerStatus == l.stateOfCharge + 1 && l.size == l.powerStatus + 1;
}
static_assert(isPacked(kTwoVoltageLayout, 4) && kTwoVoltageLayout.voltage2 == 6 && kTwoVoltageLayout.size == 18);
static_assert(isPacked(kOneVoltageLayout, 2) && kOneVoltageLayout.size == 16);

// Stored counts per unit: 2 mV, 1 mA, 10 mW, 0.01 °C.
constexpr double kPerVolt = 500, kPerAmp = 1000, kPerWatt = 100, kPerDegree = 100;
constexpr double kVoltageUnit = 1 / kPerVolt, kCurrentUnit = 1 / kPerAmp, kPowerUnit = 1 / kPerWatt,
                 kTemperatureUnit = 1 / kPerDegree;

constexpr uint16_t kVoltageUnavailable = 0xFFFF;
constexpr int32_t kInt24Max = (1 << 23) - 1;
constexpr int32_t kInt24Unavailable = -(1 << 23);
constexpr int16_t kTemperatureUnavailable = std::numeric_limits<int16_t>::min();

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// The product is formed in double so that the float nearest the stored value
// comes out; a float multiply by an inexact unit can land half a unit off at
// the top of the current and power ranges, and re-encoding would then drift.
inline float scaled(int32_t raw, double unit) { return static_cast<float>(raw * unit); }

// Rounds half away from zero and saturates; the unavailable code is never produced
// from a number, since each range stops one short of it.
template <class Int>
Int quantize(float value, double perUnit, int32_t min, int32_t max, Int unavailable) {
    if (std::isnan(value)) return unavailable;
    double const v =
        std::clamp(static_cast<double>(value) * perUnit, static_cast<double>(min), static_cast<double>(max));
    return static_cast<Int>(std::lround(v));
}

inline int32_t readInt24(uint8_t const* p) { return static_cast<int32_t>(readLe<uint32_t>(p - 1)) >> 8; }

inline void writeInt24(uint8_t* p, int32_t value) {
    auto const v = static_cast<uint32_t>(value);
    writeLe<uint16_t>(p, static_cast<uint16_t>(v));
    writeLe<uint8_t>(p + 2, static_cast<uint8_t>(v >> 16));
}

inline float voltage(uint8_t const* p) {
    auto const raw = readLe<uint16_t>(p);
    return raw == kVoltageUnavailable ? kNaN : scaled(raw, kVoltageUnit);
}

inline float int24Value(uint8_t const* p, double unit) {
    int32_t const raw = readInt24(p);
    return raw == kInt24Unavailable ? kNaN : scaled(raw, unit);
}

template <LogLayout kLayout, bool kSecondVoltage>
void decodeRun(uint8_t const* p, size_t count, LogRecord* out) {
    for (size_t i = 0; i < count; ++i, p += kLayout.size) {
        LogRecord& r = out[i];
        r.time = readLe<uint32_t>(p);
        r.voltage1 = voltage(p + kLayout.voltage1);
        r.voltage2 = kSecondVoltage ? voltage(p + kLayout.voltage2) : kNaN;
        r.current = int24Value(p + kLayout.current, kCurrentUnit);
        r.power = int24Value(p + kLayout.power, kPowerUnit);
        auto const temperature = readLe<int16_t>(p + kLayout.temperature);
        r.temperature = temperature == kTemperatureUnavailable ? kNaN : scaled(temperature, kTemperatureUnit);
        r.stateOfCharge = p[kLayout.stateOfCharge];
        r.powerStatus = p[kLayout.powerStatus];
    }
}

}  // namespace

size_t logRecordSize(uint8_t hardwareRevision) {
    return hasSecondVoltage(hardwareRevision) ? kTwoVoltageLayout.size : kOneVoltageLayout.size;
}

void encodeLogRecord(uint8_t hardwareRevision, LogRecord const& record, std::vector<uint8_t>& out) {
    bool const second = hasSecondVoltage(hardwareRevision);
    LogLayout const& layout = second ? kTwoVoltageLayout : kOneVoltageLayout;
    size_t const at = out.size();
    out.resize(at + layout.size);
    uint8_t* p = out.data() + at;
    constexpr int32_t kVoltageMax = kVoltageUnavailable - 1;
    constexpr int32_t kTemperatureMin = kTemperatureUnavailable + 1;
    constexpr int32_t kTemperatureMax = std::numeric_limits<int16_t>::max();
    writeLe<uint32_t>(p, record.time);
    writeLe<uint16_t>(p + layout.voltage1, quantize(record.voltage1, kPerVolt, 0, kVoltageMax, kVoltageUnavailable));
    if (second) {
        writeLe<uint16_t>(p + layout.voltage2,
                          quantize(record.voltage2, kPerVolt, 0, kVoltageMax, kVoltageUnavailable));
    }
    writeInt24(p + layout.current, quantize(record.current, kPerAmp, -kInt24Max, kInt24Max, kInt24Unavailable));
    writeInt24(p + layout.power, quantize(record.power, kPerWatt, -kInt24Max, kInt24Max, kInt24Unavailable));
    writeLe<int16_t>(p + layout.temperature, quantize(record.temperature, kPerDegree, kTemperatureMin, kTemperatureMax,
                                                      kTemperatureUnavailable));
    p[layout.stateOfCharge] = record.stateOfCharge;
    p[layout.powerStatus] = record.powerStatus;
}

void decodeLogRecords(uint8_t hardwareRevision, uint8_t const* data, size_t length, std::vector<LogRecord>& out) {
    size_t const count = length / logRecordSize(hardwareRevision);
    if (count == 0) return;
    // One resize, then plain stores: a push_back per record costs a third more
    // time. resize grows the capacity geometrically, so a caller appending file
    // after file stays linear.
    size_t const first = out.size();
    out.resize(first + count);
    if (hasSecondVoltage(hardwareRevision))
        decodeRun<kTwoVoltageLayout, true>(data, count, out.data() + first);
    else
        decodeRun<kOneVoltageLayout, false>(data, count, out.data() + first);
}
