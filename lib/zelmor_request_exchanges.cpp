// The request operations of ZelmorRequest that take more than one command: the
// lock exchange, file list paging and the firmware transfer, with the reads
// that sit beside them.
#include <algorithm>

#include "byte_io.h"
#include "command_codes.h"
#include "hardware_revision.h"
#include "records.h"
#include "sealed_block.h"
#include "zelmor_request.h"

namespace {

constexpr uint32_t kReadTimeoutMs = 10000;
constexpr uint32_t kFirmwareBlockTimeoutMs = 20000;
constexpr uint32_t kFirmwareFinishTimeoutMs = 2000;

// The 0x2_ family takes the image in smaller blocks than every other family.
uint32_t firmwareBlockSize(uint8_t hardwareRevision) { return modelFamily(hardwareRevision) == 0x20 ? 2048 : 4096; }

std::vector<uint8_t> words(std::initializer_list<uint32_t> values) {
    std::vector<uint8_t> out;
    ByteWriter writer(out);
    for (uint32_t v : values) writer.write(v);
    return out;
}

}  // namespace

struct ZelmorRequest::FirmwareTransfer {
    uint32_t total = 0;
    uint32_t remaining = 0;
    uint8_t const* next = nullptr;  // the caller's image, not copied
    uint32_t blockSize = 4096;
    ProgressCallback progress;
    DoneCallback done;
};

void ZelmorRequest::lockExchange(uint16_t secondCommand, AuthKey const& key, DoneCallback callback) {
    enqueue(command::kLockChallenge, {}, kDefaultTimeoutMs,
            [this, secondCommand, key, callback](ResponseCode code, uint8_t const* challenge, size_t length) {
                if (code != ResponseCode::Success) {
                    callback(code);
                    return;
                }
                /* A challenge of any other length is not one we can seal: nothing more is sent. */
                if (length != kChallengeSize) {
                    callback(ResponseCode::InvalidDeviceResponse);
                    return;
                }
                SealedBlock block;
                bool sealed;
                {
                    std::lock_guard lock(authMutex_);
                    sealed = sealBlock(authCipher_, challenge, key, block);
                }
                if (!sealed) {
                    callback(ResponseCode::RequestFailed);
                    return;
                }
                enqueueDone(secondCommand, {block.begin(), block.end()}, callback);
            });
}

void ZelmorRequest::requestUnlock(AuthKey const& key, DoneCallback callback) {
    lockExchange(command::kUnlock, key, std::move(callback));
}

void ZelmorRequest::requestSetUserPasswordLock(AuthKey const& key, DoneCallback callback) {
    lockExchange(command::kSetUserPasswordLock, key, std::move(callback));
}

void ZelmorRequest::requestSetMasterPasswordLock(AuthKey const& key, DoneCallback callback) {
    lockExchange(command::kSetMasterPasswordLock, key, std::move(callback));
}

void ZelmorRequest::requestGetFileList(RecordCallback<std::vector<LogFileDescriptor>> callback) {
    requestGetFileListInternal(true, std::move(callback), std::make_shared<std::vector<LogFileDescriptor>>());
}

void ZelmorRequest::requestGetFileListInternal(bool firstPage, RecordCallback<std::vector<LogFileDescriptor>> callback,
                                               std::shared_ptr<std::vector<LogFileDescriptor>> files) {
    // The device decides the page size; the host asks until a page comes back empty.
    enqueue(command::kGetFileList, {static_cast<uint8_t>(firstPage ? 1 : 0)}, kDefaultTimeoutMs,
            [this, callback, files](ResponseCode code, uint8_t const* data, size_t length) {
                if (code != ResponseCode::Success) {
                    callback(code, {});
                    return;
                }
                if (length == 0) {
                    callback(code, *files);
                    return;
                }
                decodeFileListPage(data, length, *files);
                requestGetFileListInternal(false, callback, files);
            });
}

void ZelmorRequest::requestReadLogFile(uint32_t fileId, uint32_t offset, uint32_t length, BytesCallback callback) {
    enqueue(command::kReadLogFile, words({fileId, offset, length}), kReadTimeoutMs, std::move(callback));
}

void ZelmorRequest::requestReadDebug(uint32_t offset, uint32_t length, BytesCallback callback) {
    enqueue(command::kReadDebug, words({offset, length}), kReadTimeoutMs, std::move(callback));
}

void ZelmorRequest::requestUpdateFirmware(uint8_t const* image, uint32_t size, ProgressCallback progress,
                                          DoneCallback callback) {
    auto transfer = std::make_shared<FirmwareTransfer>();
    transfer->total = size;
    transfer->remaining = size;
    transfer->next = image;
    transfer->blockSize = firmwareBlockSize(getDeviceInfo().hardwareRevision);
    transfer->progress = std::move(progress);
    transfer->done = std::move(callback);
    enqueue(command::kFirmwareStart, words({size}), kDefaultTimeoutMs,
            [this, transfer](ResponseCode code, uint8_t const*, size_t) {
                if (code != ResponseCode::Success) {
                    transfer->done(code);
                    return;
                }
                sendFirmwareBlock(transfer);
            });
}

void ZelmorRequest::sendFirmwareBlock(std::shared_ptr<FirmwareTransfer> transfer) {
    uint32_t const n = std::min(transfer->remaining, transfer->blockSize);
    std::vector<uint8_t> block(transfer->next, transfer->next + n);
    transfer->next += n;
    transfer->remaining -= n;
    enqueue(command::kFirmwareBlock, std::move(block), kFirmwareBlockTimeoutMs,
            [this, transfer](ResponseCode code, uint8_t const*, size_t length) {
                /* A block is acknowledged with an empty answer; data in it is a protocol error. */
                if (code == ResponseCode::Success && length > 0) {
                    transfer->done(ResponseCode::InvalidDeviceResponse);
                    return;
                }
                if (code != ResponseCode::Success) {
                    transfer->done(code);
                    return;
                }
                if (transfer->progress && !transfer->progress(transfer->total - transfer->remaining, transfer->total)) {
                    transfer->done(ResponseCode::Cancelled);
                    return;
                }
                if (transfer->remaining != 0) {
                    sendFirmwareBlock(transfer);
                    return;
                }
                enqueue(command::kFirmwareFinish, {}, kFirmwareFinishTimeoutMs,
                        [transfer](ResponseCode finishCode, uint8_t const*, size_t) { transfer->done(finishCode); });
            });
}
