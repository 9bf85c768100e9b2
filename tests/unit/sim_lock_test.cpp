// Passwords: the lock exchange built by hand, and which commands each lock
// protects.
#include <gtest/gtest.h>

#include <set>

#include "auth_key.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

constexpr size_t kWifiLockOffset = 76;
constexpr size_t kLanLockOffset = 43;
constexpr size_t kBluetoothLockOffset = 9;

sim::SimulatedDeviceConfig lockedConfig(ManualClock const& clock, std::string user, std::string master,
                                        uint8_t revision = 0x41) {
    sim::SimulatedDeviceConfig config = configFor(revision, clock);
    config.userPassword = std::move(user);
    config.masterPassword = std::move(master);
    return config;
}

// Open to everyone, and protected by the master password on top of the user
// password; every other known command is protected by the user password.
std::set<uint16_t> const kOpen = {0x01, 0x30, 0x31};
std::set<uint16_t> const kMaster = {0x10, 0x11, 0x12, 0x13, 0x14, 0x21, 0x22, 0x25, 0x26, 0x27, 0x28,
                                    0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x45, 0x51, 0x52, 0x53, 0x54,
                                    0x55, 0x61, 0x63, 0x71, 0x72, 0xDE, 0xF0, 0xF1, 0xF2, 0xFB};
std::set<uint16_t> const kUser = {0x02, 0x03, 0x04, 0x20, 0x40, 0x44, 0x50, 0x60, 0x62, 0x70, 0xDB};

std::set<uint16_t> tableCodes() {
    std::set<uint16_t> codes;
    for (sim::CommandRow const& row : sim::commandTable()) codes.insert(row.code);
    return codes;
}

size_t minimumLength(uint16_t code) {
    for (sim::CommandRow const& row : sim::commandTable())
        if (row.code == code) return row.minLength;
    return 0;
}

TEST(SimLock, TableHoldsExactlyTheKnownCommands) {
    std::set<uint16_t> all = kOpen;
    all.insert(kMaster.begin(), kMaster.end());
    all.insert(kUser.begin(), kUser.end());
    EXPECT_EQ(tableCodes(), all);
}

TEST(SimLock, UserPasswordGuardsAllButInfoAndUnlock) {
    ManualClock clock;
    sim::SimulatedDevice device(lockedConfig(clock, "user", ""));
    TestHost host(device);
    for (uint16_t code = 0; code <= 0xFF; ++code) {
        uint16_t const got = host.call(code, Bytes(minimumLength(code), 0)).code;
        if (kOpen.count(code)) {
            EXPECT_NE(got, 4) << code;
        } else if (kUser.count(code) || kMaster.count(code)) {
            EXPECT_EQ(got, 4) << code;
        } else {
            EXPECT_EQ(got, 1) << code;
        }
    }
}

TEST(SimLock, MasterPasswordGuardsChanges) {
    ManualClock clock;
    sim::SimulatedDevice device(lockedConfig(clock, "", "master"));
    TestHost host(device);
    for (uint16_t code = 0; code <= 0xFF; ++code) {
        uint16_t const got = host.call(code, Bytes(minimumLength(code), 0)).code;
        if (kMaster.count(code)) {
            EXPECT_EQ(got, 5) << code;
        } else if (kUser.count(code) || kOpen.count(code)) {
            EXPECT_NE(got, 4) << code;
            EXPECT_NE(got, 5) << code;
        } else {
            EXPECT_EQ(got, 1) << code;
        }
    }
}

TEST(SimLock, UserPasswordExchange) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    Zelmor::AuthKey const key = makeAuthKey("correct horse");
    {
        TestHost owner(device);
        EXPECT_EQ(owner.lockStep(0x33, key).code, 0);
        // Setting the lock leaves the session that set it unlocked.
        EXPECT_EQ(owner.call(0x04).code, 0);
        EXPECT_EQ(owner.call(0x01).payload[kWifiLockOffset], 0x00);
    }
    EXPECT_TRUE(device.snapshot().userPasswordSet);

    TestHost visitor(device);
    EXPECT_EQ(visitor.call(0x04).code, 4);
    EXPECT_EQ(visitor.call(0x01).payload[kWifiLockOffset], 0x10);
    EXPECT_EQ(visitor.lockStep(0x31, makeAuthKey("wrong")).code, 6);
    EXPECT_EQ(visitor.call(0x04).code, 4);
    EXPECT_EQ(visitor.lockStep(0x31, key).code, 0);
    EXPECT_EQ(visitor.call(0x04).code, 0);
    EXPECT_EQ(visitor.call(0x01).payload[kWifiLockOffset], 0x00);
}

TEST(SimLock, ChallengeIsGoodForOneUseAndMustMatch) {
    ManualClock clock;
    sim::SimulatedDevice device(lockedConfig(clock, "user", ""));
    Zelmor::AuthKey const key = makeAuthKey("user");
    TestHost host(device);
    // No challenge asked for yet.
    EXPECT_EQ(host.call(0x31, TestHost::seal(Bytes(32, 0), key)).code, 3);

    Answer const challenge = host.call(0x30);
    ASSERT_EQ(challenge.payload.size(), 32u);
    Bytes const block = TestHost::seal(challenge.payload, key);
    Bytes other = challenge.payload;
    other[0] ^= 1;
    EXPECT_EQ(host.call(0x31, TestHost::seal(other, key)).code, 3);
    // The failed attempt spent the challenge.
    EXPECT_EQ(host.call(0x31, block).code, 3);

    Answer const second = host.call(0x30);
    EXPECT_NE(second.payload, challenge.payload);
    Bytes const good = TestHost::seal(second.payload, key);
    EXPECT_EQ(host.call(0x31, good).code, 0);
    EXPECT_EQ(host.call(0x31, good).code, 3);
}

TEST(SimLock, ChallengesBelongToTheirSession) {
    ManualClock clock;
    sim::SimulatedDevice device(lockedConfig(clock, "user", ""));
    TestHost a(device);
    TestHost b(device);
    Answer const challenge = a.call(0x30);
    EXPECT_EQ(b.call(0x31, TestHost::seal(challenge.payload, makeAuthKey("user"))).code, 3);
    EXPECT_EQ(a.call(0x31, TestHost::seal(challenge.payload, makeAuthKey("user"))).code, 0);
}

TEST(SimLock, MasterPasswordLevels) {
    ManualClock clock;
    sim::SimulatedDevice device(lockedConfig(clock, "user", "master"));
    Zelmor::AuthKey const user = makeAuthKey("user");
    Zelmor::AuthKey const master = makeAuthKey("master");

    TestHost host(device);
    EXPECT_EQ(host.call(0x01).payload[kWifiLockOffset], 0x30);
    EXPECT_EQ(host.lockStep(0x31, user).code, 0);
    EXPECT_EQ(host.call(0x01).payload[kWifiLockOffset], 0x20);
    EXPECT_EQ(host.call(0x04).code, 0);
    EXPECT_EQ(host.call(0x14, {0}).code, 5);
    EXPECT_EQ(host.call(0x35).code, 5);
    EXPECT_EQ(host.call(0x37).code, 5);
    EXPECT_EQ(host.lockStep(0x33, makeAuthKey("new")).code, 5);

    EXPECT_EQ(host.lockStep(0x31, master).code, 0);
    EXPECT_EQ(host.call(0x14, {0}).code, 0);
    Answer const authKey = host.call(0x35);
    EXPECT_EQ(authKey.code, 0);
    EXPECT_EQ(authKey.payload, Bytes(user.begin(), user.end()));

    EXPECT_EQ(host.call(0x37).code, 0);
    EXPECT_EQ(host.call(0x35).payload, Bytes(32, 0));
    TestHost other(device);
    EXPECT_EQ(other.call(0x04).code, 0);
    EXPECT_EQ(other.call(0x14, {1}).code, 5);

    EXPECT_EQ(host.call(0x38).code, 0);
    EXPECT_EQ(other.call(0x14, {1}).code, 0);
    EXPECT_FALSE(device.snapshot().masterPasswordSet);
}

TEST(SimLock, SetMasterPasswordAndResetAuthKey) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x10, clock));
    TestHost owner(device);
    EXPECT_EQ(owner.lockStep(0x33, makeAuthKey("u")).code, 0);
    EXPECT_EQ(owner.lockStep(0x34, makeAuthKey("m")).code, 0);
    EXPECT_EQ(owner.call(0x14, {0}).code, 0);

    TestHost other(device);
    EXPECT_EQ(other.call(0x01).payload[kLanLockOffset], 0x30);
    EXPECT_EQ(other.lockStep(0x34, makeAuthKey("x")).code, 4);
    EXPECT_EQ(other.lockStep(0x31, makeAuthKey("m")).code, 0);
    EXPECT_EQ(other.call(0x36).code, 0);
    sim::DeviceSnapshot const s = device.snapshot();
    EXPECT_FALSE(s.userPasswordSet);
    EXPECT_FALSE(s.masterPasswordSet);
    TestHost third(device);
    EXPECT_EQ(third.call(0x01).payload[kLanLockOffset], 0x00);
    EXPECT_EQ(third.call(0x14, {1}).code, 0);
}

TEST(SimLock, UnlockWithoutPasswordsIsRefused) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    EXPECT_EQ(host.lockStep(0x31, makeAuthKey("")).code, 6);
}

TEST(SimLock, BluetoothLockBits) {
    ManualClock clock;
    sim::SimulatedDevice device(lockedConfig(clock, "user", "master", 0x21));
    TestHost host(device);
    EXPECT_EQ(host.call(0x01).payload[kBluetoothLockOffset], 0x03);
    EXPECT_EQ(host.lockStep(0x31, makeAuthKey("user")).code, 0);
    EXPECT_EQ(host.call(0x01).payload[kBluetoothLockOffset], 0x02);
}

}  // namespace
