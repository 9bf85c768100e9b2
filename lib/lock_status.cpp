#include "lock_status.h"

#include "hardware_revision.h"

namespace {

bool lockBit(Zelmor::DeviceInfo const& info, unsigned offset) {
    unsigned const first = isNetworkModel(info.hardwareRevision) ? 4 : 0;
    return (info.lockStatus >> (first + offset) & 1) != 0;
}

}  // namespace

bool deviceLocked(Zelmor::DeviceInfo const& info) { return lockBit(info, 0); }

bool masterPasswordSet(Zelmor::DeviceInfo const& info) { return lockBit(info, 1); }
