#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
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

/// Brings the local copy of a device's data log up to date; the device window
/// and `zelmorctl log sync` both sync through it. Each device file `id` is
/// mirrored as logFileName(id) in the device's folder and holds exactly the
/// first bytes of the device's file, nothing else, so the local length is
/// where the next sync resumes: a sync that is cut short leaves valid copies
/// behind, and repeated syncs converge to byte-identical files. A local file
/// longer than the device's is left alone, never truncated.
///
/// The engine has no thread of its own. A sync lists the files, then reads the
/// missing bytes block by block, file by file in the device's order; the block
/// replies write the files on the device's request thread, so a long download
/// never holds up the caller's thread. Only one request is out at a time. The
/// state lives in an object that the request callbacks share, so the engine
/// may go away while a reply is still on its way: the reply then does nothing.
class LogMirror {
public:
    /// How a sync ended.
    struct Outcome {
        /// Device files whose local copy reached the listed length.
        size_t filesComplete = 0;
        /// Device files whose copy is still short; the next sync fills them in.
        size_t filesIncomplete = 0;
        /// The first request that failed: the file list (then nothing was
        /// copied) or a block. Success when none did.
        Zelmor::ResponseCode firstFailure = Zelmor::ResponseCode::Success;
        /// Why the local store could not be written, e.g. "r00000001.log: No
        /// space left on device"; empty when it could. Such a failure ends the sync.
        std::string localError;
        /// Bytes appended to local files by this sync.
        uint64_t bytesFetched = 0;
        /// Bytes missing locally when the sync began (syncBytesTotal).
        uint64_t bytesPlanned = 0;
        /// The sync went through the whole list without being stopped.
        bool ranToEnd = false;

        bool complete() const {
            return filesIncomplete == 0 && firstFailure == Zelmor::ResponseCode::Success && localError.empty();
        }
        /// Whether the next sync is due on the long timer: after a sync that
        /// had bytes to fetch and ran to its end. A sync that found nothing
        /// new, failed to list or was stopped leaves the next one to the user.
        bool schedulesNext() const { return ranToEnd && bytesPlanned > 0; }
    };

    /// Where a sync's steps and news go. Each may be empty.
    struct Callbacks {
        /// Carries the list reply, as `step`, to the thread that owns the
        /// local store (the device window's GUI thread); when the owner is
        /// gone it drops the step. Empty: the step runs on the request thread.
        std::function<void(std::function<void()> step)> carryList;
        /// After the listing and after each block: bytes done of the total.
        std::function<void(uint64_t done, uint64_t total)> progress;
        /// Once, when the sync ends, unless the link ends while a request
        /// waits for an answer that never comes (the caller watches the link).
        std::function<void(Outcome const&)> done;
    };

    /// `device` must be connected (and unlocked when a password is set) for
    /// the requests to succeed, and must outlive every request of a sync.
    explicit LogMirror(Zelmor& device);
    /// Stops the sync without waiting: a reply still on its way does nothing.
    ~LogMirror();
    LogMirror(LogMirror const&) = delete;
    LogMirror& operator=(LogMirror const&) = delete;

    /// Begins a sync into `directory` (made when missing), reading blocks of
    /// logReadBlockLength(hardwareRevision). While a sync is under way it
    /// stays the one: the call then only lets it go on (undoing a stopSync
    /// that it has not yet obeyed), so two syncs never write the same files.
    void startSync(std::filesystem::path const& directory, uint8_t hardwareRevision, Callbacks callbacks);
    /// Asks the sync to stop and waits, polling every 10 ms, until it has:
    /// it stops after its current step. A listing still under way ends when
    /// its reply comes, without copying anything. Returns at once once the
    /// sync was abandoned, since a link that ended may never answer.
    void stopSync();
    /// Stops the sync without waiting, for good. Any thread may call the
    /// result, e.g. the link's disconnect callback, which comes while the
    /// caller's thread may be waiting in stopSync.
    std::function<void()> abandoner() const;

    /// The sync may go on: set by startSync, cleared by stopSync.
    bool syncEnabled() const;
    /// Files are being copied: from the list reply until the sync ends.
    bool syncing() const;
    /// Bytes missing locally when the copying began, and those copied since.
    uint64_t syncBytesTotal() const;
    uint64_t syncBytesDone() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};
