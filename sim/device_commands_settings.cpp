#include <algorithm>
#include <cstring>

#include "byte_io.h"
#include "device_commands.h"

namespace sim {

namespace {

constexpr size_t kMaxSchedules = 32;

ScheduleRecord scheduleAt(uint8_t const* p) {
    ScheduleRecord record;
    std::memcpy(record.data(), p, record.size());
    return record;
}

std::vector<ScheduleRecord>& edits(CommandContext& c) {
    if (!c.session.scheduleEdits) c.session.scheduleEdits = c.device.schedules;
    return *c.session.scheduleEdits;
}

}  // namespace

Status getConfig(CommandContext& c) {
    ByteWriter(c.answer).writeBytes(c.device.config.data(), c.device.config.size());
    return Status::Success;
}

Status setConfig(CommandContext& c) {
    std::memcpy(c.device.config.data(), c.payload, c.device.config.size());
    c.device.configChanged();
    c.device.note("configuration written");
    return Status::Success;
}

Status resetConfig(CommandContext& c) {
    c.device.restoreFactoryConfig();
    c.device.name = c.device.factoryName();
    c.device.note("configuration reset");
    return Status::Success;
}

Status rename(CommandContext& c) {
    // The name is stored zero-padded, so a zero inside it would cut it short.
    if (c.length > c.device.maxNameLength() || std::memchr(c.payload, 0, c.length) != nullptr)
        return Status::InvalidParameter;
    c.device.name.assign(reinterpret_cast<char const*>(c.payload), c.length);
    c.device.note("renamed");
    return Status::Success;
}

// A connection edits its own copy of the timers, taken when it first edits
// them; only a commit puts that copy in force. So the timers a device runs
// and reports are only ever a whole list a host committed, however a
// connection's edits end.
Status getSchedules(CommandContext& c) {
    ByteWriter w(c.answer);
    for (ScheduleRecord const& s : c.device.schedules) w.writeBytes(s.data(), s.size());
    return Status::Success;
}

Status addSchedules(CommandContext& c) {
    if (c.length % kScheduleRecordSize != 0) return Status::InvalidParameter;
    size_t const count = c.length / kScheduleRecordSize;
    std::vector<ScheduleRecord>& list = edits(c);
    // All or nothing: a batch that does not fit is refused whole.
    if (list.size() + count > kMaxSchedules) return Status::RequestFailed;
    for (size_t i = 0; i < count; ++i) list.push_back(scheduleAt(c.payload + i * kScheduleRecordSize));
    return Status::Success;
}

Status updateSchedule(CommandContext& c) {
    auto const index = readLe<uint32_t>(c.payload);
    std::vector<ScheduleRecord>& list = edits(c);
    if (index >= list.size()) return Status::InvalidParameter;
    list[index] = scheduleAt(c.payload + 4);
    return Status::Success;
}

Status deleteSchedule(CommandContext& c) {
    auto const index = readLe<uint32_t>(c.payload);
    std::vector<ScheduleRecord>& list = edits(c);
    if (index >= list.size()) return Status::InvalidParameter;
    list.erase(list.begin() + index);
    return Status::Success;
}

Status clearSchedules(CommandContext& c) {
    edits(c).clear();
    return Status::Success;
}

Status commitSchedules(CommandContext& c) {
    c.device.schedules = edits(c);
    c.session.scheduleEdits.reset();
    ++c.device.scheduleCommits;
    c.device.note("schedules committed (" + std::to_string(c.device.schedules.size()) + ")");
    return Status::Success;
}

}  // namespace sim
