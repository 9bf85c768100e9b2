// Decoding a year of one-second data log records of a two-voltage model, the
// way the application does it: the log is written to a file, read back whole
// and decoded. Printed beside two baselines from the same run: memcpy of the
// same bytes into a preallocated buffer, and a loop that fills LogRecord structs
// the same way the decoder does (one resize, then stores) but copies the stored
// integers with no scaling and no not-available checks.
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <numbers>
#include <string>
#include <vector>

#include "byte_io.h"
#include "log_record.h"
#include "synthetic_log.h"

namespace {

constexpr uint8_t kRevision = 0x41;
constexpr size_t kSecondsPerDay = 86400;
constexpr int kRepeats = 3;

// A slowly cycling battery: charge by day, discharge by night, with noise.
std::vector<uint8_t> encodeLog(size_t count) {
    std::vector<uint8_t> out;
    out.reserve(count * logRecordSize(kRevision));
    bench::SyntheticLog log;
    for (size_t i = 0; i < count; ++i) {
        LogRecord const r = log.next(static_cast<uint32_t>(1700000000 + i));
        encodeLogRecord(kRevision, r, out);
    }
    return out;
}

std::vector<uint8_t> writeAndReadBack(std::vector<uint8_t> const& bytes, double& writeSeconds, double& readSeconds) {
    char path[] = "/tmp/zelmor-log-bench-XXXXXX";
    int const fd = mkstemp(path);
    if (fd < 0) {
        std::perror("mkstemp");
        std::exit(1);
    }
    close(fd);
    auto const t0 = std::chrono::steady_clock::now();
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!file) {
            std::fprintf(stderr, "cannot write %s\n", path);
            std::exit(1);
        }
    }
    auto const t1 = std::chrono::steady_clock::now();
    std::vector<uint8_t> back(bytes.size());
    {
        std::ifstream file(path, std::ios::binary);
        file.read(reinterpret_cast<char*>(back.data()), static_cast<std::streamsize>(back.size()));
        if (file.gcount() != static_cast<std::streamsize>(back.size())) {
            std::fprintf(stderr, "short read from %s\n", path);
            std::exit(1);
        }
    }
    auto const t2 = std::chrono::steady_clock::now();
    std::remove(path);
    writeSeconds = std::chrono::duration<double>(t1 - t0).count();
    readSeconds = std::chrono::duration<double>(t2 - t1).count();
    return back;
}

// Best of a few runs; the machine is shared, and the best run is the one least disturbed.
double bestSeconds(std::function<void()> const& work) {
    double best = 1e30;
    for (int i = 0; i < kRepeats; ++i) {
        auto const start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

void plainCopy(uint8_t const* p, size_t length, std::vector<LogRecord>& out) {
    size_t const size = logRecordSize(kRevision);
    size_t const count = length / size;
    size_t const first = out.size();
    out.resize(first + count);
    for (size_t i = 0; i < count; ++i, p += size) {
        LogRecord& r = out[first + i];
        r.time = readLe<uint32_t>(p);
        r.voltage1 = readLe<uint16_t>(p + 4);
        r.voltage2 = readLe<uint16_t>(p + 6);
        r.current = static_cast<float>(readLe<uint32_t>(p + 8) & 0xFFFFFF);
        r.power = static_cast<float>(readLe<uint32_t>(p + 10) >> 8);
        r.temperature = readLe<int16_t>(p + 14);
        r.stateOfCharge = p[16];
        r.powerStatus = p[17];
    }
}

void printLine(char const* what, double seconds, size_t records, size_t bytes, double yearScale, double decode) {
    std::printf("%-34s %9.4f s %8.1f Mrec/s %8.1f MB/s   year %7.3f s   decode/this %6.2f\n", what, seconds,
                static_cast<double>(records) / seconds / 1e6, static_cast<double>(bytes) / seconds / 1e6,
                seconds * yearScale, decode / seconds);
}

}  // namespace

int main(int argc, char** argv) {
    bool const quick = argc > 1 && std::string(argv[1]) == "--quick";
    size_t const count = quick ? kSecondsPerDay : 365 * kSecondsPerDay;
    double const yearScale = static_cast<double>(365 * kSecondsPerDay) / static_cast<double>(count);
    size_t const recordSize = logRecordSize(kRevision);

    double writeSeconds = 0, readSeconds = 0;
    std::vector<uint8_t> log;
    {
        std::vector<uint8_t> const encoded = encodeLog(count);
        log = writeAndReadBack(encoded, writeSeconds, readSeconds);
        if (log != encoded) {
            std::fprintf(stderr, "file read back differs\n");
            return 1;
        }
    }
    size_t const bytes = log.size();
    std::printf("%zu records of %zu bytes (%.1f MB), revision 0x%02X%s\n", count, recordSize,
                static_cast<double>(bytes) / 1e6, kRevision, quick ? ", quick" : "");
    std::printf("file write %.3f s, read back %.3f s\n\n", writeSeconds, readSeconds);

    uint64_t sink = 0;
    double const decodeFresh = bestSeconds([&] {
        std::vector<LogRecord> records;
        decodeLogRecords(kRevision, log.data(), log.size(), records);
        sink += records.size() + records.back().time;
    });
    std::vector<LogRecord> reused;
    double const decodeReused = bestSeconds([&] {
        reused.clear();
        decodeLogRecords(kRevision, log.data(), log.size(), reused);
        sink += reused.size();
    });
    if (reused.size() != count || reused.front().time != 1700000000 || std::isnan(reused.back().voltage2)) {
        std::fprintf(stderr, "decoded records are wrong\n");
        return 1;
    }
    reused = {};

    std::vector<uint8_t> target(bytes, 1);
    double const memcpySeconds = bestSeconds([&] {
        std::memcpy(target.data(), log.data(), bytes);
        sink += target[bytes / 2];
    });
    target = {};
    double const plainSeconds = bestSeconds([&] {
        std::vector<LogRecord> records;
        plainCopy(log.data(), log.size(), records);
        sink += records.size() + records.back().time;
    });

    printLine("decodeLogRecords, new vector", decodeFresh, count, bytes, yearScale, decodeFresh);
    printLine("decodeLogRecords, reused vector", decodeReused, count, bytes, yearScale, decodeFresh);
    printLine("baseline memcpy", memcpySeconds, count, bytes, yearScale, decodeFresh);
    printLine("baseline plain copy, new vector", plainSeconds, count, bytes, yearScale, decodeFresh);
    std::printf("\ndecode takes %.2fx memcpy (reused vector), %.2fx the plain copy (new vectors); checksum %llu\n",
                decodeReused / memcpySeconds, decodeFresh / plainSeconds, static_cast<unsigned long long>(sink));
    return 0;
}
