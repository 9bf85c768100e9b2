// The lock status byte of a device's information, read by model.
#include <gtest/gtest.h>

#include <cstdint>

#include "lock_status.h"

namespace {

TEST(LockStatusTest, LockBitsDependOnTheModel) {
    struct Case {
        uint8_t revision;
        uint8_t lockStatus;
        bool locked;
        bool master;
    };
    Case const cases[] = {
        {0x10, 0x10, true, false}, {0x10, 0x01, false, false}, {0x10, 0x20, false, true},  {0x41, 0x30, true, true},
        {0x41, 0x2F, false, true}, {0x41, 0x00, false, false}, {0x21, 0x01, true, false},  {0x21, 0x10, false, false},
        {0x31, 0x03, true, true},  {0x31, 0x02, false, true},  {0x21, 0x00, false, false},
    };
    for (auto const& c : cases) {
        Zelmor::DeviceInfo info;
        info.hardwareRevision = c.revision;
        info.lockStatus = c.lockStatus;
        EXPECT_EQ(deviceLocked(info), c.locked) << unsigned{c.revision} << " " << unsigned{c.lockStatus};
        EXPECT_EQ(masterPasswordSet(info), c.master) << unsigned{c.revision} << " " << unsigned{c.lockStatus};
    }
}

}  // namespace
