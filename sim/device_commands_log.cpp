#include <algorithm>

#include "byte_io.h"
#include "device_commands.h"

namespace sim {

namespace {

constexpr size_t kFilesPerPage = 16;
// One read answers at most this much, which bounds the frames of one answer.
constexpr uint32_t kMaxReadLength = 131072;

}  // namespace

Status getFileList(CommandContext& c) {
    uint8_t const first = c.payload[0];
    if (first > 1) return Status::InvalidParameter;
    // The listing goes on after the last id sent rather than at a position, so
    // files added or dropped between two pages do not shift it.
    if (first == 1) c.session.lastListedFileId = 0;
    std::vector<LogFileEntry> const page = c.device.log.listAfter(c.session.lastListedFileId, kFilesPerPage);
    ByteWriter w(c.answer);
    for (LogFileEntry const& file : page) w.write<uint32_t>(file.id).write<uint32_t>(file.size);
    if (!page.empty()) c.session.lastListedFileId = page.back().id;
    return Status::Success;
}

Status readLogFile(CommandContext& c) {
    ByteReader r(c.payload, c.length);
    auto const id = r.read<uint32_t>();
    auto const offset = r.read<uint32_t>();
    uint32_t const length = std::min(r.read<uint32_t>(), kMaxReadLength);
    std::vector<uint8_t> const* file = c.device.log.file(id);
    if (file == nullptr) return Status::InvalidParameter;
    if (offset < file->size()) {
        size_t const end = std::min(file->size(), static_cast<size_t>(offset) + length);
        c.answer.assign(file->begin() + offset, file->begin() + static_cast<std::ptrdiff_t>(end));
    }
    return Status::Success;
}

Status clearLog(CommandContext& c) {
    c.device.log.clear();
    c.device.note("data log cleared");
    return Status::Success;
}

Status readDebug(CommandContext& c) {
    ByteReader r(c.payload, c.length);
    auto const offset = r.read<uint32_t>();
    auto const length = r.read<uint32_t>();
    c.answer = c.device.debug.read(offset, length);
    return Status::Success;
}

Status eraseDebug(CommandContext& c) {
    c.device.debug.erase();
    return Status::Success;
}

}  // namespace sim
