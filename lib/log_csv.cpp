#include "log_csv.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

#include "power_status.h"

namespace {

// Rows are gathered and handed to the stream in pieces of about this size.
constexpr size_t kFlushSize = 1 << 16;

constexpr size_t kLogFileNameLength = 13;  // "r" + 8 hex digits + ".log"

bool hexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

/// The file id of a local log file name, or false for any other name.
bool logFileId(std::string_view name, uint32_t& id) {
    if (name.size() != kLogFileNameLength || name.front() != 'r' || !name.ends_with(".log")) return false;
    std::string_view const digits = name.substr(1, 8);
    if (!std::all_of(digits.begin(), digits.end(), hexDigit)) return false;
    id = static_cast<uint32_t>(std::stoul(std::string(digits), nullptr, 16));
    return true;
}

void appendText(fmt::memory_buffer& out, std::string_view text) { out.append(text.data(), text.data() + text.size()); }

void appendRow(fmt::memory_buffer& out, LogRecord const& record) {
    auto const to = std::back_inserter(out);
    std::time_t const time = record.time;
    std::tm local{};
    localtime_r(&time, &local);
    fmt::format_to(to, "{:%d/%m/%Y %H:%M:%S},{:.3f},", local, record.voltage1);
    if (!std::isnan(record.voltage2)) fmt::format_to(to, "{:.3f}", record.voltage2);
    fmt::format_to(to, ",{:.3f},{:.2f},{:.2f},", record.current, record.power, record.temperature);
    if (record.stateOfCharge > 100 && record.stateOfCharge != 255)
        appendText(out, "unknown");
    else if (record.stateOfCharge <= 100)
        fmt::format_to(to, "{}", record.stateOfCharge);
    fmt::format_to(to, ",{}\n", powerStatusText(record.powerStatus));
}

bool flush(std::ostream& out, fmt::memory_buffer& buffer) {
    out.write(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    buffer.clear();
    return static_cast<bool>(out);
}

bool readWhole(std::filesystem::path const& path, std::vector<uint8_t>& bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

}  // namespace

bool writeLogCsv(std::ostream& out, std::vector<LogRecord> const& records, int64_t from, int64_t to) {
    fmt::memory_buffer buffer;
    appendText(buffer, kLogCsvHeader);
    auto record = std::find_if(records.begin(), records.end(), [from](LogRecord const& r) { return r.time >= from; });
    for (; record != records.end(); ++record) {
        appendRow(buffer, *record);
        if (buffer.size() >= kFlushSize && !flush(out, buffer)) return false;
        if (record->time >= to) break;
    }
    return flush(out, buffer) && static_cast<bool>(out.flush());
}

bool loadLogDirectory(std::filesystem::path const& directory, uint8_t hardwareRevision, std::vector<LogRecord>& records,
                      std::string& error) {
    std::vector<std::pair<uint32_t, std::filesystem::path>> files;
    std::error_code code;
    for (std::filesystem::directory_iterator it(directory, code), end; !code && it != end; it.increment(code)) {
        uint32_t id = 0;
        if (logFileId(it->path().filename().string(), id)) files.emplace_back(id, it->path());
    }
    if (code) {
        error = fmt::format("{}: {}", directory.string(), code.message());
        return false;
    }
    std::sort(files.begin(), files.end());

    std::vector<LogRecord> loaded;
    std::vector<uint8_t> bytes;
    for (auto const& file : files) {
        if (!readWhole(file.second, bytes)) {
            error = fmt::format("{}: cannot be read", file.second.string());
            return false;
        }
        decodeLogRecords(hardwareRevision, bytes.data(), bytes.size(), loaded);
    }
    std::stable_sort(loaded.begin(), loaded.end(),
                     [](LogRecord const& a, LogRecord const& b) { return a.time < b.time; });
    records.insert(records.end(), loaded.begin(), loaded.end());
    return true;
}
