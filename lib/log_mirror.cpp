#include "log_mirror.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/core.h>

#include "hardware_revision.h"

namespace {

using ResponseCode = Zelmor::ResponseCode;

constexpr uint32_t kNetworkBlockLength = 0x20000;
constexpr uint32_t kBluetoothBlockLength = 4096;

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

/// One run of the mirror. The request callbacks own it, so it lives exactly
/// as long as a request of the run is pending.
class MirrorRun : public std::enable_shared_from_this<MirrorRun> {
public:
    MirrorRun(Zelmor& device, std::filesystem::path directory, uint32_t blockLength,
              LogMirror::ProgressCallback progress, LogMirror::DoneCallback done)
        : device_(device),
          directory_(std::move(directory)),
          blockLength_(blockLength),
          progress_(std::move(progress)),
          done_(std::move(done)) {}

    MirrorRun(MirrorRun const&) = delete;
    MirrorRun& operator=(MirrorRun const&) = delete;

    ~MirrorRun() { closeFile(); }

    void start() {
        device_.requestGetFileList(
            [self = shared_from_this()](ResponseCode code, std::vector<Zelmor::LogFileDescriptor> const& files) {
                self->listed(code, files);
            });
    }

private:
    void listed(ResponseCode code, std::vector<Zelmor::LogFileDescriptor> const& files) {
        if (code != ResponseCode::Success) {
            outcome_.firstFailure = code;
            finish();
            return;
        }
        files_ = files;
        std::error_code error;
        std::filesystem::create_directories(directory_, error);
        if (error) {
            outcome_.localError = fmt::format("{}: {}", directory_.string(), error.message());
            outcome_.filesIncomplete = files_.size();
            finish();
            return;
        }
        for (auto const& file : files_) {
            uint64_t const local = localFileLength(directory_ / logFileName(file.fileId));
            if (local < file.size) total_ += file.size - local;
        }
        reportProgress();
        next_ = 0;
        advance();
    }

    /// Opens the next file that lacks bytes and asks for its first missing
    /// block; files that lack nothing are passed over on the way.
    void advance() {
        for (; next_ < files_.size(); ++next_) {
            std::string const name = logFileName(files_[next_].fileId);
            fd_ = ::open((directory_ / name).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
            struct stat status {};
            if (fd_ < 0 || ::fstat(fd_, &status) != 0) {
                localFailure(name);
                return;
            }
            localLength_ = static_cast<uint64_t>(status.st_size);
            if (localLength_ < files_[next_].size) {
                requestBlock();
                return;
            }
            closeFile();
            ++outcome_.filesComplete;
        }
        finish();
    }

    void requestBlock() {
        device_.requestReadLogFile(files_[next_].fileId, static_cast<uint32_t>(localLength_), blockLength_,
                                   [self = shared_from_this()](ResponseCode code, uint8_t const* data, size_t length) {
                                       self->received(code, data, length);
                                   });
    }

    void received(ResponseCode code, uint8_t const* data, size_t length) {
        // The device answers [offset, min(offset + length, size)), and its files
        // only grow. More than was asked for is not an answer to this read; less
        // than the listed file still holds means a continuation frame was lost
        // on the way, and appending it would leave a hole in the copy.
        uint64_t const expected = std::min<uint64_t>(blockLength_, files_[next_].size - localLength_);
        if (code == ResponseCode::Success && length != 0 && (length > blockLength_ || length < expected))
            code = ResponseCode::InvalidDeviceResponse;
        if (code != ResponseCode::Success) {
            if (outcome_.firstFailure == ResponseCode::Success) outcome_.firstFailure = code;
            fileEnded(false);
            return;
        }
        if (length == 0) {
            fileEnded(false);
            return;
        }
        if (!writeAll(fd_, data, length)) {
            localFailure(logFileName(files_[next_].fileId));
            return;
        }
        // The newest file may have grown since it was listed: what lies beyond
        // the listed length is the device's too, but was not part of the plan.
        uint32_t const size = files_[next_].size;
        uint64_t const planned = localLength_ < size ? std::min<uint64_t>(length, size - localLength_) : 0;
        localLength_ += length;
        doneBytes_ += planned;
        outcome_.bytesFetched += length;
        reportProgress();
        if (localLength_ < size)
            requestBlock();
        else
            fileEnded(true);
    }

    void fileEnded(bool complete) {
        closeFile();
        ++(complete ? outcome_.filesComplete : outcome_.filesIncomplete);
        ++next_;
        advance();
    }

    void localFailure(std::string const& name) {
        std::error_code const error(errno, std::generic_category());
        outcome_.localError = fmt::format("{}: {}", (directory_ / name).string(), error.message());
        closeFile();
        outcome_.filesIncomplete += files_.size() - next_;
        finish();
    }

    void closeFile() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

    void reportProgress() {
        if (progress_) progress_(doneBytes_, total_);
    }

    void finish() {
        if (done_) done_(outcome_);
    }

    Zelmor& device_;
    std::filesystem::path const directory_;
    uint32_t const blockLength_;
    LogMirror::ProgressCallback const progress_;
    LogMirror::DoneCallback const done_;

    std::vector<Zelmor::LogFileDescriptor> files_;
    size_t next_ = 0;  // index in files_ of the file being copied
    int fd_ = -1;
    uint64_t localLength_ = 0;
    uint64_t total_ = 0;
    uint64_t doneBytes_ = 0;
    LogMirror::Outcome outcome_;
};

}  // namespace

uint32_t logReadBlockLength(uint8_t hardwareRevision) {
    return isNetworkModel(hardwareRevision) ? kNetworkBlockLength : kBluetoothBlockLength;
}

std::filesystem::path deviceLogDirectory(std::filesystem::path const& root, uint64_t serial) {
    return root / fmt::format("{:x}", serial);
}

std::string logFileName(uint32_t fileId) { return fmt::format("r{:08x}.log", fileId); }

LogMirror::LogMirror(Zelmor& device, std::filesystem::path const& root, uint64_t serial, uint8_t hardwareRevision)
    : device_(device),
      directory_(deviceLogDirectory(root, serial)),
      blockLength_(logReadBlockLength(hardwareRevision)) {}

void LogMirror::start(ProgressCallback progress, DoneCallback done) {
    std::make_shared<MirrorRun>(device_, directory_, blockLength_, std::move(progress), std::move(done))->start();
}
