#include "log_csv.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <memory>

#include "power_status.h"

namespace {

// Rows are gathered in one buffer and written when it is nearly full.
constexpr size_t kBufferSize = 1 << 20;
// More than the longest row: four fallback numbers of up to 50 characters and the rest.
constexpr size_t kRowRoom = 512;
constexpr uint64_t kProgressRows = 8192;

char* appendText(char* p, char const* text) {
    size_t const length = std::strlen(text);
    std::memcpy(p, text, length);
    return p + length;
}

char* appendUnsigned(char* p, uint64_t value) {
    char digits[20];
    size_t n = 0;
    do {
        digits[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (n > 0) *p++ = digits[--n];
    return p;
}

char* appendTwoDigits(char* p, unsigned value) {
    p[0] = static_cast<char>('0' + value / 10);
    p[1] = static_cast<char>('0' + value % 10);
    return p + 2;
}

// A value of the decoder is the float nearest a whole number of its stored
// units. When `value` is the float nearest m / 10^decimals and half its ulp is
// below half the last printed digit, printf prints exactly that decimal, so the
// digits come from the integer m. `limit` is the magnitude up to which the
// ulp is small enough: 2^14 for three decimals (ulp 2^-10), 2^17 for two
// (ulp 2^-7). Anything else (NaN, -0, values between the units, larger ones)
// returns null for printf.
char* appendExactDecimal(char* p, float value, int decimals, float limit) {
    if (!(std::fabs(value) < limit)) return nullptr;
    double const scale = decimals == 3 ? 1000 : 100;
    long long const m = std::llround(static_cast<double>(value) * scale);
    if (static_cast<float>(static_cast<double>(m) / scale) != value || (m == 0 && std::signbit(value))) return nullptr;
    if (m < 0) *p++ = '-';
    auto const magnitude = static_cast<uint64_t>(m < 0 ? -m : m);
    auto const unit = static_cast<uint64_t>(scale);
    p = appendUnsigned(p, magnitude / unit);
    *p++ = '.';
    uint64_t const fraction = magnitude % unit;
    if (decimals == 3) *p++ = static_cast<char>('0' + fraction / 100);
    return appendTwoDigits(p, static_cast<unsigned>(fraction % 100));
}

char* appendThreeDecimals(char* p, float value) {
    if (char* end = appendExactDecimal(p, value, 3, 16384.0f)) return end;
    return p + std::snprintf(p, kRowRoom / 4, "%.3f", static_cast<double>(value));
}

char* appendTwoDecimals(char* p, float value) {
    if (char* end = appendExactDecimal(p, value, 2, 131072.0f)) return end;
    return p + std::snprintf(p, kRowRoom / 4, "%.2f", static_cast<double>(value));
}

// The second voltage is formatted by fmt's "{:.3f}"; on the exact decimals it
// prints what printf prints.
char* appendSecondVoltage(char* p, float value) {
    if (std::isnan(value)) return p;
    if (char* end = appendExactDecimal(p, value, 3, 16384.0f)) return end;
    return fmt::format_to_n(p, kRowRoom / 4, "{:.3f}", value).out;
}

/// "dd/mm/YYYY HH:MM:" of a minute, formatted again only when the minute changes.
class MinuteText {
public:
    char* append(char* p, uint32_t time) {
        uint32_t const minute = time / 60;
        if (minute != minute_ || !valid_) {
            std::time_t const stamp = time;
            std::tm fields{};
            gmtime_r(&stamp, &fields);
            // Stamps run from 1970 to 2106: the year always has four digits.
            char* p = appendTwoDigits(text_, static_cast<unsigned>(fields.tm_mday));
            *p++ = '/';
            p = appendTwoDigits(p, static_cast<unsigned>(fields.tm_mon + 1));
            *p++ = '/';
            p = appendUnsigned(p, static_cast<uint64_t>(fields.tm_year + 1900));
            *p++ = ' ';
            p = appendTwoDigits(p, static_cast<unsigned>(fields.tm_hour));
            *p++ = ':';
            p = appendTwoDigits(p, static_cast<unsigned>(fields.tm_min));
            *p = ':';
            minute_ = minute;
            valid_ = true;
        }
        std::memcpy(p, text_, kLength);
        return appendTwoDigits(p + kLength, time % 60);
    }

private:
    static constexpr size_t kLength = 17;
    char text_[kLength] = {};
    uint32_t minute_ = 0;
    bool valid_ = false;
};

char* appendRow(char* p, LogRecord const& record, MinuteText& minutes) {
    p = minutes.append(p, record.time);
    *p++ = ',';
    p = appendThreeDecimals(p, record.voltage1);
    *p++ = ',';
    p = appendSecondVoltage(p, record.voltage2);
    *p++ = ',';
    p = appendThreeDecimals(p, record.current);
    *p++ = ',';
    p = appendTwoDecimals(p, record.power);
    *p++ = ',';
    p = appendTwoDecimals(p, record.temperature);
    *p++ = ',';
    if (record.stateOfCharge <= 100)
        p = appendUnsigned(p, record.stateOfCharge);
    else if (record.stateOfCharge != 255)
        p = appendText(p, "unknown");
    *p++ = ',';
    p = appendText(p, powerStatusText(record.powerStatus));
    *p++ = '\n';
    return p;
}

bool writeOut(std::FILE* out, char const* data, size_t length) { return std::fwrite(data, 1, length, out) == length; }

}  // namespace

LogCsvResult writeLogCsv(std::FILE* out, std::vector<LogRecord> const& records, int64_t from, int64_t to,
                         LogCsvProgress const& progress) {
    auto const buffer = std::make_unique<char[]>(kBufferSize);
    char* const begin = buffer.get();
    char* p = appendText(begin, kLogCsvHeader);
    auto const first =
        std::find_if(records.begin(), records.end(), [from](LogRecord const& r) { return r.time >= from; });
    auto const last = std::find_if(first, records.end(), [to](LogRecord const& r) { return r.time >= to; });
    auto const total = static_cast<uint64_t>((last == records.end() ? last : last + 1) - first);
    MinuteText minutes;
    uint64_t done = 0;
    for (auto record = first; record != records.end(); ++record) {
        p = appendRow(p, *record, minutes);
        ++done;
        if (static_cast<size_t>(p - begin) > kBufferSize - kRowRoom) {
            if (!writeOut(out, begin, static_cast<size_t>(p - begin))) return LogCsvResult::writeFailed;
            p = begin;
        }
        if (record->time >= to) break;
        if (progress && done % kProgressRows == 0 && !progress(done, total)) return LogCsvResult::cancelled;
    }
    if (!writeOut(out, begin, static_cast<size_t>(p - begin)) || std::fflush(out) != 0)
        return LogCsvResult::writeFailed;
    if (progress) progress(done, total);
    return LogCsvResult::written;
}
