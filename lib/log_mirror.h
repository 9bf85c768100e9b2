#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "zelmor.h"

/// Bytes asked for per read of a log file: 131072 from the network models
/// (0x1_ and 0x4_), 4096 from every other model.
uint32_t logReadBlockLength(uint8_t hardwareRevision);

/// The folder of one device in the local log store: `root` joined with the
/// serial in lower-case hex without leading zeros ("%lx").
std::filesystem::path deviceLogDirectory(std::filesystem::path const& root, uint64_t serial);

/// The local name of device log file `fileId`: "r%08x.log".
std::string logFileName(uint32_t fileId);

/// Brings the local copy of a device's data log up to date. Each device file
/// `id` is mirrored as deviceLogDirectory(root, serial)/logFileName(id) and
/// holds exactly the first bytes of the device's file, nothing else, so the
/// local length is where the next run resumes: a run that is cut short leaves
/// valid copies behind, and repeated runs converge to byte-identical files.
/// A local file longer than the device's is left alone, never truncated.
///
/// The class has no thread of its own: a run is driven by the callbacks of the
/// device's requests, and its own callbacks are called on the device's worker
/// thread. A run keeps its own state, so the mirror object may go away while a
/// run is still under way.
class LogMirror {
public:
    /// How a run ended.
    struct Outcome {
        /// Device files whose local copy reached the listed length.
        size_t filesComplete = 0;
        /// Device files whose copy is still short; the next run fills them in.
        size_t filesIncomplete = 0;
        /// The first request that failed: the file list (then nothing was
        /// copied) or a block. Success when none did.
        Zelmor::ResponseCode firstFailure = Zelmor::ResponseCode::Success;
        /// Why the local store could not be written, e.g. "r00000001.log: No
        /// space left on device"; empty when it could. Such a failure ends the run.
        std::string localError;
        /// Bytes appended to local files by this run.
        uint64_t bytesFetched = 0;

        bool complete() const {
            return filesIncomplete == 0 && firstFailure == Zelmor::ResponseCode::Success && localError.empty();
        }
    };
    /// Bytes copied so far in this run, and the bytes the run set out to copy.
    using ProgressCallback = std::function<void(uint64_t done, uint64_t total)>;
    using DoneCallback = std::function<void(Outcome const&)>;

    /// `device` must be connected (and unlocked when a password is set) for
    /// the run's requests to succeed, and must outlive every run.
    LogMirror(Zelmor& device, std::filesystem::path const& root, uint64_t serial, uint8_t hardwareRevision);

    std::filesystem::path const& directory() const { return directory_; }

    /// Starts one run: lists the device's files, then copies the missing bytes
    /// file by file in the device's order. A failed or empty block leaves its
    /// file as far as it got and the run goes on with the next file; so does a
    /// block shorter than the listed file still holds (a lost continuation
    /// frame: InvalidDeviceResponse), which is not written. `done` is
    /// called once at the end, unless the link ends while the run waits for
    /// an answer that never comes (the caller watches the link for that).
    void start(ProgressCallback progress, DoneCallback done);

private:
    Zelmor& device_;
    std::filesystem::path const directory_;
    uint32_t const blockLength_;
};
