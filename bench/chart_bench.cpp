// The log chart's data path on a year of one-second records of a two-voltage
// model, written as daily files the way the local store keeps them: loading
// and indexing beside reading and decoding alone, the chart's columns beside a
// plain walk over the records, the memory of records and index beside the
// bytes on disk, and the CSV export beside a straightforward snprintf writer.
//
//   chart_bench [--quick | --records N]   (default: a year, 31,536,000 records)
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "local_store.h"
#include "log_chart_index.h"
#include "log_chart_reference.h"
#include "log_csv.h"
#include "log_csv_reference.h"
#include "log_record.h"
#include "power_status.h"
#include "synthetic_log.h"

namespace {

constexpr uint8_t kRevision = 0x41;
constexpr uint64_t kSerial = 0xC4A27;
constexpr size_t kSecondsPerDay = 86400;
constexpr uint32_t kFirstTime = 1700000000;
constexpr uint64_t kMicros = 1000000;
constexpr size_t kColumns = 1920;
constexpr size_t kCsvRowsMax = 30 * kSecondsPerDay;
using Columns = std::vector<std::vector<float>>;

double secondsOf(std::function<void()> const& work, int repeats) {
    double best = 1e30;
    for (int i = 0; i < repeats; ++i) {
        auto const start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

size_t residentBytes() {
    long pages = 0, resident = 0;
    std::FILE* statm = std::fopen("/proc/self/statm", "r");
    if (!statm || std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
    if (statm) std::fclose(statm);
    return static_cast<size_t>(resident) * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// A battery cycling once a day with noise; the logger pauses now and then for
// two minutes (a hole in the chart) and, every ten days, for an hour.
size_t writeDailyFiles(std::filesystem::path const& dir, size_t count) {
    bench::SyntheticLog log;
    uint32_t time = kFirstTime;
    size_t bytes = 0;
    std::vector<uint8_t> day;
    for (size_t i = 0, file = 1; i < count; ++file) {
        day.clear();
        for (size_t n = 0; n < kSecondsPerDay && i < count; ++n, ++i) {
            LogRecord const r = log.next(time);
            encodeLogRecord(kRevision, r, day);
            time += i % 50000 == 49999 ? 120 : i % 864000 == 863999 ? 3600 : 1;
        }
        std::FILE* out = std::fopen((dir / fmt::format("r{:08x}.log", file)).c_str(), "wb");
        if (!out || std::fwrite(day.data(), 1, day.size(), out) != day.size() || std::fclose(out) != 0) {
            std::fprintf(stderr, "cannot write the log files under %s\n", dir.c_str());
            std::exit(1);
        }
        bytes += day.size();
    }
    return bytes;
}

// Reading and decoding alone: every file in name order, one read each into a
// reused buffer, decoded into a vector that grows as it must.
std::vector<LogRecord> readAndDecode(std::filesystem::path const& dir) {
    std::vector<std::filesystem::path> files;
    for (auto const& entry : std::filesystem::directory_iterator(dir)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<LogRecord> records;
    std::vector<uint8_t> buffer;
    for (auto const& path : files) {
        int const fd = ::open(path.c_str(), O_RDONLY);
        buffer.resize(std::filesystem::file_size(path));
        ssize_t const n = ::read(fd, buffer.data(), buffer.size());
        ::close(fd);
        decodeLogRecords(kRevision, buffer.data(), n > 0 ? static_cast<size_t>(n) : 0, records);
    }
    return records;
}

double largestDifference(Columns const& a, Columns const& b) {
    double worst = 0;
    for (size_t q = 0; q < a.size(); ++q)
        for (size_t k = 0; k < a[q].size(); ++k) {
            if (std::isnan(a[q][k]) != std::isnan(b[q][k])) return INFINITY;
            if (!std::isnan(a[q][k]))
                worst = std::max<double>(worst, std::fabs(a[q][k] - b[q][k]) / std::max(1.0f, std::fabs(b[q][k])));
        }
    return worst;
}

std::string captured(std::function<void(std::FILE*)> const& write) {
    char* text = nullptr;
    size_t length = 0;
    std::FILE* out = open_memstream(&text, &length);
    write(out);
    std::fclose(out);
    std::string result(text, length);
    std::free(text);
    return result;
}

void printRatio(char const* what, double seconds, char const* baseline, double baselineSeconds, char const* aim) {
    std::printf("%-44s %10.4f s   %-30s %10.4f s   ratio %8.2f   aim %s\n", what, seconds, baseline, baselineSeconds,
                baselineSeconds / seconds, aim);
}

}  // namespace

int main(int argc, char** argv) {
    size_t count = 365 * kSecondsPerDay;
    if (argc > 1 && std::strcmp(argv[1], "--quick") == 0) count = kSecondsPerDay;
    if (argc > 2 && std::strcmp(argv[1], "--records") == 0) count = std::strtoull(argv[2], nullptr, 10);
    if (count < 2) {
        std::fprintf(stderr, "usage: chart_bench [--quick | --records N], N >= 2\n");
        return 2;
    }
    int const repeats = count > 10 * kSecondsPerDay ? 2 : 5;
    char pattern[] = "/tmp/zelmor-chart-bench-XXXXXX";
    if (!mkdtemp(pattern)) {
        std::perror("mkdtemp");
        return 1;
    }
    std::filesystem::path const root = pattern;
    LocalStore store(root);
    store.setCurrentDevice(kSerial);
    size_t const diskBytes = writeDailyFiles(store.deviceLogDir(), count);
    std::printf("%zu records of %zu bytes in %zu daily files, %.1f MB on disk\n\n", count, logRecordSize(kRevision),
                (count + kSecondsPerDay - 1) / kSecondsPerDay, static_cast<double>(diskBytes) / 1e6);

    // Measured first, while the heap holds nothing freed that the records could reuse.
    size_t const residentBefore = residentBytes();
    store.loadLocalLog(kRevision);
    auto measured = std::make_unique<LogChartIndex>(store.logRecords(), true);
    size_t const residentGrowth = residentBytes() - residentBefore;
    size_t const computed = store.logRecords().capacity() * sizeof(LogRecord) + measured->memoryBytes();
    size_t const indexBytes = measured->memoryBytes();
    measured.reset();
    store.logRecords() = {};

    size_t checksum = 0;
    double const decodeSeconds = secondsOf([&] { checksum += readAndDecode(store.deviceLogDir()).size(); }, repeats);
    double const loadSeconds = secondsOf(
        [&] {
            store.loadLocalLog(kRevision);
            LogChartIndex const index(store.logRecords(), true);
            checksum += index.memoryBytes();
        },
        repeats);
    store.loadLocalLog(kRevision);
    std::vector<LogRecord> const& records = store.logRecords();
    LogChartIndex const index(records, true);
    if (records.size() != count) {
        std::fprintf(stderr, "loaded %zu records of %zu\n", records.size(), count);
        return 1;
    }
    printRatio("loadLocalLog + LogChartIndex", loadSeconds, "read + decode alone", decodeSeconds,
               "<= 1.5x the baseline (ratio >= 0.67)");
    std::printf("%-44s %10.1f MB   %.3fx the bytes on disk   aim <= 1.7x\n", "resident growth, records + index",
                static_cast<double>(residentGrowth) / 1e6,
                static_cast<double>(residentGrowth) / static_cast<double>(diskBytes));
    std::printf("%-44s %10.1f MB   %.3fx the bytes on disk (index %.1f MB, %.2f bytes per record)\n",
                "computed, records + index", static_cast<double>(computed) / 1e6,
                static_cast<double>(computed) / static_cast<double>(diskBytes), static_cast<double>(indexBytes) / 1e6,
                static_cast<double>(indexBytes) / static_cast<double>(count));

    uint64_t const first = records.front().time * kMicros, last = records.back().time * kMicros;
    uint64_t const hour = first + (last - first) / 2;
    struct Span {
        char const* name;
        uint64_t start, end;
        int repeats;
        char const* aim;
    };
    for (Span const& span : {Span{"full span", first, last, repeats, ">= 70x faster"},
                             Span{"one hour", hour, hour + 3600 * kMicros, 200, "no slower than 2x (ratio >= 0.5)"}}) {
        Columns fast, walked, lows, highs, lowsWalked, highsWalked;
        double const indexSeconds =
            secondsOf([&] { index.averages(span.start, span.end, kColumns, fast); }, span.repeats);
        double const walkSeconds =
            secondsOf([&] { walked = chart_reference::walkAverages(records, true, span.start, span.end, kColumns); },
                      span.repeats);
        double const extremesSeconds =
            secondsOf([&] { index.extremes(span.start, span.end, kColumns, lows, highs); }, span.repeats);
        double const minMaxSeconds = secondsOf(
            [&] {
                chart_reference::walkExtremes(records, true, span.start, span.end, kColumns, lowsWalked, highsWalked);
            },
            span.repeats);
        std::string const name = fmt::format("averages, {} columns, {}", kColumns, span.name);
        printRatio(name.c_str(), indexSeconds, "walk over the records", walkSeconds, span.aim);
        std::string const extremesName = fmt::format("extremes, {} columns, {}", kColumns, span.name);
        printRatio(extremesName.c_str(), extremesSeconds, "min/max walk", minMaxSeconds, "(none)");
        std::printf("    largest relative difference to the walk: averages %.2g, extremes %.2g\n",
                    largestDifference(fast, walked),
                    std::max(largestDifference(lows, lowsWalked), largestDifference(highs, highsWalked)));
    }

    size_t const rows = std::min(count, kCsvRowsMax);
    auto const from = static_cast<int64_t>(records.front().time), to = static_cast<int64_t>(records[rows - 1].time);
    std::FILE* sink = std::fopen("/dev/null", "wb");
    double const csvSeconds = secondsOf([&] { writeLogCsv(sink, records, from, to); }, repeats);
    double const snprintfSeconds = secondsOf([&] { writeLogCsvBySnprintf(sink, records, from, to); }, repeats);
    std::fclose(sink);
    std::string const name = fmt::format("writeLogCsv, {} rows", rows);
    printRatio(name.c_str(), csvSeconds, "snprintf writer", snprintfSeconds, ">= 2.8x faster");
    size_t const compared = std::min<size_t>(rows, kSecondsPerDay);
    bool const same = captured([&](std::FILE* out) {
                          writeLogCsv(out, records, from, static_cast<int64_t>(records[compared - 1].time));
                      }) == captured([&](std::FILE* out) {
                          writeLogCsvBySnprintf(out, records, from, static_cast<int64_t>(records[compared - 1].time));
                      });
    std::printf("    the first %zu rows byte for byte as the snprintf writer's: %s\n", compared, same ? "yes" : "NO");

    std::filesystem::remove_all(root);
    std::printf("\nchecksum %zu\n", checksum);
    return same ? 0 : 1;
}
