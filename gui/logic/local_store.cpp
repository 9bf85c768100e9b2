#include "local_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <string>
#include <system_error>

#include <fmt/core.h>

#include "device_link.h"
#include "log_directory.h"

namespace {

constexpr char const* kRemoteDevicesFile = "cloud_devices.cfg";
constexpr mode_t kPrivateFileMode = 0600;

bool writeAll(int fd, std::string const& text) {
    size_t written = 0;
    while (written < text.size()) {
        ssize_t const n = ::write(fd, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        written += static_cast<size_t>(n);
    }
    return true;
}

// Makes a finished rename survive a crash; the file is whole either way.
void syncDirectory(std::filesystem::path const& dir) {
    int const fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

// Writes `text` beside `target` under a temporary name, flushes it to the disk
// and renames it over `target`, so that readers and a crash see either the old
// file or the new one.
bool replaceFile(std::filesystem::path const& target, std::string const& text) {
    std::string temporary = target.string() + ".XXXXXX";
    int const fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return false;
    bool const written = ::fchmod(fd, kPrivateFileMode) == 0 && writeAll(fd, text) && ::fsync(fd) == 0;
    bool const closed = ::close(fd) == 0;
    if (!written || !closed || ::rename(temporary.c_str(), target.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    syncDirectory(target.parent_path());
    return true;
}

}  // namespace

LocalStore::LocalStore(std::filesystem::path dataDir) : dataDir_(std::move(dataDir)) {
    std::error_code ignored;
    std::filesystem::create_directory(dataDir_, ignored);
    loadRemoteDevices();
}

void LocalStore::loadRemoteDevices() {
    remoteDevices_.clear();
    std::ifstream in(dataDir_ / kRemoteDevicesFile);
    for (std::string line; std::getline(in, line);) {
        DeviceLinkResult result = parseDeviceLink(line);
        if (result.identifier) remoteDevices_.push_back(std::move(*result.identifier));
    }
}

bool LocalStore::saveRemoteDevices() const {
    std::string text;
    for (auto const& id : remoteDevices_) text += makeDeviceLink(id) + "\n";
    return replaceFile(dataDir_ / kRemoteDevicesFile, text);
}

bool LocalStore::addRemoteDevice(Zelmor::DeviceIdentifier const& id) {
    auto const match = std::find(remoteDevices_.begin(), remoteDevices_.end(), id);
    if (match != remoteDevices_.end())
        *match = id;
    else
        remoteDevices_.push_back(id);
    bool const saved = saveRemoteDevices();
    remoteDevicesChanged();
    return saved;
}

bool LocalStore::removeRemoteDevice(size_t index) {
    if (index >= remoteDevices_.size()) return false;
    remoteDevices_.erase(remoteDevices_.begin() + static_cast<std::ptrdiff_t>(index));
    bool const saved = saveRemoteDevices();
    remoteDevicesChanged();
    return saved;
}

void LocalStore::setCurrentDevice(uint64_t serial) {
    deviceLogDir_ = dataDir_ / fmt::format("{:x}", serial);
    std::error_code ignored;
    std::filesystem::create_directory(deviceLogDir_, ignored);
}

std::filesystem::path LocalStore::logFilePath(uint32_t fileId) const {
    return deviceLogDir_ / fmt::format("r{:08x}.log", fileId);
}

void LocalStore::clearLocalLog() {
    logRecords_.clear();
    if (deviceLogDir_.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(deviceLogDir_, ignored);
}

bool LocalStore::loadLocalLog(uint8_t hardwareRevision) {
    logRecords_.clear();
    // Gives back the memory of the previous log: a year of records takes most of a gigabyte.
    logRecords_.shrink_to_fit();
    if (deviceLogDir_.empty()) return true;
    std::string error;
    return loadLogDirectory(deviceLogDir_, hardwareRevision, logRecords_, error);
}

void LocalStore::remoteDevicesChanged() const {
    if (remoteDevicesChanged_) remoteDevicesChanged_();
}
