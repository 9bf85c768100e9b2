#include "log_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace {

constexpr size_t kLogFileNameLength = 13;  // "r" + 8 hex digits + ".log"

std::optional<uint32_t> hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return std::nullopt;
}

struct LogFile {
    uint32_t id;
    std::filesystem::path path;
    bool operator<(LogFile const& other) const { return id < other.id; }
};

// Reads the whole file into `buffer` (kept between files, so it is allocated
// once for the largest); it may have grown since it was listed.
bool readWhole(std::filesystem::path const& path, std::vector<uint8_t>& buffer, size_t& length) {
    int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat info {};
    bool ok = ::fstat(fd, &info) == 0;
    length = 0;
    while (ok) {
        size_t const wanted = std::max<size_t>(static_cast<size_t>(info.st_size) + 1, length + 1);
        if (buffer.size() < wanted) buffer.resize(std::max(wanted, buffer.size() * 2));
        ssize_t const n = ::read(fd, buffer.data() + length, buffer.size() - length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = n == 0;
            break;
        }
        length += static_cast<size_t>(n);
    }
    return ::close(fd) == 0 && ok;
}

}  // namespace

std::optional<uint32_t> logFileId(std::string_view name) {
    if (name.size() != kLogFileNameLength || name.front() != 'r' || !name.ends_with(".log")) return std::nullopt;
    uint32_t id = 0;
    for (char c : name.substr(1, 8)) {
        auto const digit = hexDigit(c);
        if (!digit) return std::nullopt;
        id = id << 4 | *digit;
    }
    return id;
}

bool loadLogDirectory(std::filesystem::path const& directory, uint8_t hardwareRevision, std::vector<LogRecord>& records,
                      std::string& error) {
    std::vector<LogFile> files;
    uintmax_t bytes = 0;
    std::error_code code;
    for (std::filesystem::directory_iterator it(directory, code), end; !code && it != end; it.increment(code)) {
        auto const id = logFileId(it->path().filename().native());
        if (!id) continue;
        std::error_code sizeCode;
        uintmax_t const size = it->file_size(sizeCode);
        if (!sizeCode) bytes += size;
        files.push_back({*id, it->path()});
    }
    if (code) {
        error = fmt::format("{}: {}", directory.string(), code.message());
        return false;
    }
    std::sort(files.begin(), files.end());

    // Reserved once from the sizes: the records of a year take most of a
    // gigabyte, and growing by doubling would copy them and leave up to half
    // of it unused.
    size_t const before = records.size();
    records.reserve(before + static_cast<size_t>(bytes / logRecordSize(hardwareRevision)));
    std::vector<uint8_t> buffer;
    for (LogFile const& file : files) {
        size_t length = 0;
        if (!readWhole(file.path, buffer, length)) {
            error = fmt::format("{}: cannot be read", file.path.string());
            records.resize(before);
            return false;
        }
        decodeLogRecords(hardwareRevision, buffer.data(), length, records);
    }
    auto const earlier = [](LogRecord const& a, LogRecord const& b) { return a.time < b.time; };
    auto const loaded = records.begin() + static_cast<std::ptrdiff_t>(before);
    if (!std::is_sorted(loaded, records.end(), earlier)) std::stable_sort(loaded, records.end(), earlier);
    return true;
}
