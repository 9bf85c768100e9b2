#include "log_mirror.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/core.h>

#include "hardware_revision.h"

namespace {

using ResponseCode = Zelmor::ResponseCode;

constexpr uint32_t kNetworkBlockLength = 0x20000;
constexpr uint32_t kBluetoothBlockLength = 4096;
constexpr useconds_t kStopPollUs = 10000;

/// Length of a local file; 0 when there is none.
uint64_t localFileLength(std::filesystem::path const& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

bool writeAll(int fd, uint8_t const* data, size_t length) {
    while (length > 0) {
        ssize_t const n = ::write(fd, data, length);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

/// The sync's state and steps. The engine and the callbacks of the requests
/// own it together. The atomics are shared between the caller's thread and
/// the request thread; the rest belongs to whichever step runs, and the steps
/// of one sync follow each other through the request queue, never at once.
struct LogMirror::State : std::enable_shared_from_this<LogMirror::State> {
    explicit State(Zelmor& device) : device(device) {}
    State(State const&) = delete;
    State& operator=(State const&) = delete;
    ~State() { closeFile(); }

    Zelmor& device;
    std::atomic<bool> syncEnabled{false};
    std::atomic<bool> syncing{false};
    std::atomic<bool> abandoned{false};
    std::atomic<uint64_t> syncBytesTotal{0};
    std::atomic<uint64_t> syncBytesDone{0};

    // From startSync until the end of that sync; under `lifecycle`, which
    // keeps a starting sync and an ending one apart.
    std::mutex lifecycle;
    bool underWay = false;

    std::filesystem::path directory;
    uint32_t blockLength = kBluetoothBlockLength;
    Callbacks callbacks;
    std::vector<Zelmor::LogFileDescriptor> pendingFiles;  // the files still to check, front first
    int currentFile = -1;
    uint64_t currentOffset = 0;  // the length of currentFile: where the next block starts
    Outcome outcome;

    void start(std::filesystem::path const& folder, uint8_t hardwareRevision, Callbacks news) {
        {
            std::lock_guard lock(lifecycle);
            if (abandoned) return;
            syncEnabled = true;
            if (underWay) return;
            underWay = true;
        }
        syncing = false;
        syncBytesTotal = 0;
        syncBytesDone = 0;
        pendingFiles.clear();
        outcome = {};
        directory = folder;
        blockLength = logReadBlockLength(hardwareRevision);
        callbacks = std::move(news);
        device.requestGetFileList(
            [self = shared_from_this()](ResponseCode code, std::vector<Zelmor::LogFileDescriptor> const& files) {
                auto step = [self, code, files] { self->listed(code, files); };
                if (self->callbacks.carryList)
                    self->callbacks.carryList(std::move(step));
                else
                    step();
            });
    }

    void listed(ResponseCode code, std::vector<Zelmor::LogFileDescriptor> const& files) {
        if (code != ResponseCode::Success) {
            outcome.firstFailure = code;
            end();
            return;
        }
        if (!syncEnabled) {
            end();
            return;
        }
        pendingFiles = files;
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        if (error) {
            outcome.localError = fmt::format("{}: {}", directory.string(), error.message());
            end();
            return;
        }
        uint64_t total = 0;
        for (auto const& file : pendingFiles) {
            uint64_t const local = localFileLength(directory / logFileName(file.fileId));
            if (local < file.size) total += file.size - local;
        }
        syncBytesTotal = total;
        outcome.bytesPlanned = total;
        syncing = true;
        reportProgress();
        if (total == 0) {
            // Every copy is complete: nothing to open, nothing to read.
            outcome.filesComplete = pendingFiles.size();
            pendingFiles.clear();
            end(true);
            return;
        }
        readFile();
    }

    /// Opens the front file and asks for its first missing block; files that
    /// lack nothing are passed over on the way. Ends the sync after the last.
    void readFile() {
        while (!pendingFiles.empty()) {
            std::string const name = logFileName(pendingFiles.front().fileId);
            currentFile = ::open((directory / name).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
            struct stat status {};
            if (currentFile < 0 || ::fstat(currentFile, &status) != 0) {
                localFailure(name);
                return;
            }
            currentOffset = static_cast<uint64_t>(status.st_size);
            if (currentOffset < pendingFiles.front().size) {
                readFileBlock();
                return;
            }
            fileEnded(true);
            if (!syncEnabled) {
                end();
                return;
            }
        }
        end(true);
    }

    void readFileBlock() {
        device.requestReadLogFile(pendingFiles.front().fileId, static_cast<uint32_t>(currentOffset), blockLength,
                                  [self = shared_from_this()](ResponseCode code, uint8_t const* data, size_t length) {
                                      self->blockReceived(code, data, length);
                                  });
    }

    void blockReceived(ResponseCode code, uint8_t const* data, size_t length) {
        // Stopped: the block is not written; the next sync asks for it again.
        if (!syncEnabled) {
            end();
            return;
        }
        // The device answers [offset, min(offset + length, size)), and its files
        // only grow. More than was asked for is not an answer to this read; less
        // than the listed file still holds means a continuation frame was lost
        // on the way, and appending it would leave a hole in the copy.
        uint32_t const size = pendingFiles.front().size;
        uint64_t const expected = std::min<uint64_t>(blockLength, size - currentOffset);
        if (code == ResponseCode::Success && length != 0 && (length > blockLength || length < expected))
            code = ResponseCode::InvalidDeviceResponse;
        if (code != ResponseCode::Success || length == 0) {
            // The file stays as far as it got; the next sync resumes there.
            if (code != ResponseCode::Success && outcome.firstFailure == ResponseCode::Success)
                outcome.firstFailure = code;
            fileEnded(false);
            readFile();
            return;
        }
        if (!writeAll(currentFile, data, length)) {
            localFailure(logFileName(pendingFiles.front().fileId));
            return;
        }
        // The newest file may have grown since it was listed: what lies beyond
        // the listed length is the device's too, but was not part of the total.
        uint64_t const planned = currentOffset < size ? std::min<uint64_t>(length, size - currentOffset) : 0;
        currentOffset += length;
        syncBytesDone += planned;
        outcome.bytesFetched += length;
        reportProgress();
        if (currentOffset < size) {
            readFileBlock();
            return;
        }
        fileEnded(true);
        if (syncEnabled)
            readFile();
        else
            end();
    }

    /// Closes the front file and drops it from the pending ones.
    void fileEnded(bool complete) {
        closeFile();
        ++(complete ? outcome.filesComplete : outcome.filesIncomplete);
        pendingFiles.erase(pendingFiles.begin());
    }

    void localFailure(std::string const& name) {
        std::error_code const error(errno, std::generic_category());
        outcome.localError = fmt::format("{}: {}", (directory / name).string(), error.message());
        end();
    }

    void closeFile() {
        if (currentFile >= 0) ::close(currentFile);
        currentFile = -1;
    }

    void reportProgress() const {
        if (callbacks.progress) callbacks.progress(syncBytesDone, syncBytesTotal);
    }

    /// Ends the sync; `throughList` when every listed file had its turn.
    void end(bool throughList = false) {
        closeFile();
        outcome.ranToEnd = throughList && syncEnabled;
        outcome.filesIncomplete += pendingFiles.size();
        pendingFiles.clear();
        // A sync started as soon as the lock is released may reuse the members.
        Outcome const ended = outcome;
        auto const done = callbacks.done;
        {
            std::lock_guard lock(lifecycle);
            underWay = false;
            syncing = false;
        }
        if (done) done(ended);
    }
};

uint32_t logReadBlockLength(uint8_t hardwareRevision) {
    return isNetworkModel(hardwareRevision) ? kNetworkBlockLength : kBluetoothBlockLength;
}

std::filesystem::path deviceLogDirectory(std::filesystem::path const& root, uint64_t serial) {
    return root / fmt::format("{:x}", serial);
}

std::string logFileName(uint32_t fileId) { return fmt::format("r{:08x}.log", fileId); }

LogMirror::LogMirror(Zelmor& device) : state_(std::make_shared<State>(device)) {}

LogMirror::~LogMirror() { abandoner()(); }

void LogMirror::startSync(std::filesystem::path const& directory, uint8_t hardwareRevision, Callbacks callbacks) {
    state_->start(directory, hardwareRevision, std::move(callbacks));
}

void LogMirror::stopSync() {
    state_->syncEnabled = false;
    while (state_->syncing && !state_->abandoned) ::usleep(kStopPollUs);
}

std::function<void()> LogMirror::abandoner() const {
    return [state = state_] {
        std::lock_guard lock(state->lifecycle);
        state->abandoned = true;
        state->syncEnabled = false;
    };
}

bool LogMirror::syncEnabled() const { return state_->syncEnabled; }
bool LogMirror::syncing() const { return state_->syncing; }
uint64_t LogMirror::syncBytesTotal() const { return state_->syncBytesTotal; }
uint64_t LogMirror::syncBytesDone() const { return state_->syncBytesDone; }
