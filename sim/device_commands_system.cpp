#include "byte_io.h"
#include "device_commands.h"

namespace sim {

Status firmwareStart(CommandContext& c) {
    Status const status = c.device.firmware.start(readLe<uint32_t>(c.payload));
    if (status == Status::Success) c.device.note("firmware update started");
    return status;
}

Status firmwareBlock(CommandContext& c) { return c.device.firmware.append(c.payload, c.length); }

Status firmwareFinish(CommandContext& c) {
    std::optional<uint16_t> const version = c.device.firmware.finish(c.device.hardwareRevision);
    if (!version) {
        c.device.note("firmware update failed");
        return Status::RequestFailed;
    }
    c.device.firmwareVersion = *version;
    c.device.note("firmware updated to " + versionText(*version));
    // The device restarts into the new firmware once this answer is out.
    c.device.bootTime = c.device.battery.time();
    c.device.restartRelay();
    c.device.restartPending = true;
    return Status::Success;
}

Status reboot(CommandContext& c) {
    // The connection outlives the reboot here, and with it the session's
    // unlock level; a host that reconnects starts locked again.
    c.device.firmware.abandon();
    c.device.bootTime = c.device.battery.time();
    c.device.restartRelay();
    c.device.note("reboot");
    return Status::Success;
}

}  // namespace sim
