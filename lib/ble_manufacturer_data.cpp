#include "ble_manufacturer_data.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "byte_io.h"
#include "hardware_revision.h"

namespace {

constexpr uint16_t kVoltageNotAvailable = 0xFFFF;
constexpr double kMaxMillivolts = 65534;
constexpr uint8_t kMaxPowerStatus = 0x0F;

bool isBluetoothRevision(uint8_t revision) { return modelFamily(revision) == 0x20 || modelFamily(revision) == 0x30; }

uint16_t millivolts(float volts) {
    if (std::isnan(volts)) return kVoltageNotAvailable;
    double const mv = std::clamp(std::round(static_cast<double>(volts) * 1000.0), 0.0, kMaxMillivolts);
    return static_cast<uint16_t>(mv);
}

float volts(uint16_t millivolts) {
    if (millivolts == kVoltageNotAvailable) return std::numeric_limits<float>::quiet_NaN();
    return static_cast<float>(millivolts / 1000.0);
}

int32_t saturatedInt32(int64_t value) {
    return static_cast<int32_t>(
        std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

/// Rounds `magnitude >> shift` to nearest, ties to even.
uint32_t shiftRounded(uint32_t magnitude, int shift) {
    uint32_t const kept = magnitude >> shift;
    uint32_t const rest = magnitude & ((1u << shift) - 1);
    uint32_t const half = 1u << (shift - 1);
    return kept + ((rest > half || (rest == half && (kept & 1))) ? 1 : 0);
}

}  // namespace

uint16_t floatToHalf(float value) {
    uint32_t const bits = std::bit_cast<uint32_t>(value);
    auto const sign = static_cast<uint16_t>((bits >> 16) & 0x8000);
    int const exponent = static_cast<int>((bits >> 23) & 0xFF);
    uint32_t const mantissa = bits & 0x7FFFFF;

    if (exponent == 0xFF) {
        // The quiet bit keeps a NaN whose payload lives only in the low bits from turning into infinity.
        if (mantissa != 0) return static_cast<uint16_t>(sign | 0x7E00 | (mantissa >> 13));
        return static_cast<uint16_t>(sign | 0x7C00);
    }
    int const unbiased = exponent - 127;
    if (exponent == 0 || unbiased < -25) return sign;  // below half the smallest subnormal
    if (unbiased > 15) return static_cast<uint16_t>(sign | 0x7C00);

    uint32_t const significand = mantissa | 0x800000;
    if (unbiased < -14) {
        // Subnormal: the result counts units of 2^-24; rounding up may reach the smallest normal, which is
        // the same bit pattern.
        return static_cast<uint16_t>(sign | shiftRounded(significand, -unbiased - 1));
    }
    // A carry out of the mantissa raises the exponent, and from the largest finite value gives infinity.
    uint32_t const biased = static_cast<uint32_t>(unbiased + 15) << 10;
    return static_cast<uint16_t>(sign | (biased + shiftRounded(mantissa, 13)));
}

float halfToFloat(uint16_t half) {
    uint32_t const sign = static_cast<uint32_t>(half & 0x8000) << 16;
    uint32_t const exponent = (half >> 10) & 0x1F;
    uint32_t const mantissa = half & 0x3FF;
    if (exponent == 0) {
        float const magnitude = std::ldexp(static_cast<float>(mantissa), -24);
        return sign ? -magnitude : magnitude;
    }
    if (exponent == 0x1F) return std::bit_cast<float>(sign | 0x7F800000 | (mantissa << 13));
    return std::bit_cast<float>(sign | ((exponent - 15 + 127) << 23) | (mantissa << 13));
}

bool decodeManufacturerData(uint8_t const* data, size_t length, ZelmorScanner::Advertisement& out) {
    if (length != kManufacturerDataSize || !isBluetoothRevision(data[0])) return false;
    ByteReader in(data, length);
    out.hardwareRevision = in.read<uint8_t>();
    out.firmwareVersion = in.read<uint16_t>();
    out.time = in.read<uint32_t>();
    out.voltage1 = volts(in.read<uint16_t>());
    out.voltage2 = volts(in.read<uint16_t>());
    out.current = halfToFloat(in.read<uint16_t>());
    out.power = halfToFloat(in.read<uint16_t>());
    out.temperature = halfToFloat(in.read<uint16_t>());
    out.coulombMeter = in.read<int32_t>();
    out.energyWh = in.read<float>();
    out.stateOfCharge = in.read<uint8_t>();
    out.runtime = in.read<uint16_t>();
    uint8_t const statusByte = in.read<uint8_t>();
    out.powerStatus = statusByte & 0x0F;
    out.status = statusByte >> 4;
    return true;
}

ManufacturerData encodeManufacturerData(ZelmorScanner::Advertisement const& readings) {
    std::vector<uint8_t> bytes;
    bytes.reserve(kManufacturerDataSize);
    auto const statusByte =
        static_cast<uint8_t>(std::min(readings.powerStatus, kMaxPowerStatus) | ((readings.status & 0x0F) << 4));
    ByteWriter(bytes)
        .write<uint8_t>(readings.hardwareRevision)
        .write<uint16_t>(readings.firmwareVersion)
        .write<uint32_t>(readings.time)
        .write<uint16_t>(millivolts(readings.voltage1))
        .write<uint16_t>(millivolts(readings.voltage2))
        .write<uint16_t>(floatToHalf(readings.current))
        .write<uint16_t>(floatToHalf(readings.power))
        .write<uint16_t>(floatToHalf(readings.temperature))
        .write<int32_t>(saturatedInt32(readings.coulombMeter))
        .write<float>(readings.energyWh)
        .write<uint8_t>(readings.stateOfCharge)
        .write<uint16_t>(readings.runtime)
        .write<uint8_t>(statusByte);
    ManufacturerData out{};
    std::copy(bytes.begin(), bytes.end(), out.begin());
    return out;
}
