// Passwords: the lock exchange built by hand, which commands each lock
// protects, and what each level of unlocking allows.
#include <gtest/gtest.h>

#include <set>

#include "aes256_cbc.h"
#include "auth_key.h"
#include "sealed_block.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

sim::SimulatedDeviceConfig locked(std::string user, std::string master, uint8_t revision = 0x41) {
    sim::SimulatedDeviceConfig config = model(revision);
    config.userPassword = std::move(user);
    config.masterPassword = std::move(master);
    return config;
}

/// The sealed block a host answers `challenge` with to prove it knows `key`.
Bytes seal(Bytes const& challenge, Zelmor::AuthKey const& key) {
    Aes256Cbc authentication;
    authentication.init(kSharedAuthenticationKey);
    SealedBlock block;
    EXPECT_TRUE(sealBlock(authentication, challenge.data(), key, block));
    return Bytes(block.begin(), block.end());
}

/// The second step of a lock exchange with `key`, after asking for a challenge.
uint16_t lockStep(TestHost& host, uint16_t code, Zelmor::AuthKey const& key) {
    Frame const challenge = host.call(0x30);
    EXPECT_EQ(challenge.payload.size(), 32u);
    return host.call(code, seal(challenge.payload, key)).code;
}

// Open to everyone, and protected by the master password on top of the user
// password; every other known command is protected by the user password.
std::set<uint16_t> const kOpen = {0x01, 0x30, 0x31};
std::set<uint16_t> const kMaster = {0x10, 0x11, 0x12, 0x13, 0x14, 0x21, 0x22, 0x25, 0x26, 0x27, 0x28,
                                    0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x45, 0x51, 0x52, 0x53, 0x54,
                                    0x55, 0x61, 0x63, 0x71, 0x72, 0xDE, 0xF0, 0xF1, 0xF2, 0xFB};
std::set<uint16_t> const kUser = {0x02, 0x03, 0x04, 0x20, 0x40, 0x44, 0x50, 0x60, 0x62, 0x70, 0xDB};

size_t minimumLength(uint16_t code) {
    for (sim::CommandRow const& row : sim::commandTable())
        if (row.code == code) return row.minLength;
    return 0;
}

// Also proves that the command table holds exactly the known commands: any
// other code is an invalid request.
TEST(SimLock, EachLockGuardsItsCommands) {
    for (bool const masterOnly : {false, true}) {
        Bench b(locked(masterOnly ? "" : "user", masterOnly ? "master" : ""));
        for (uint16_t code = 0; code <= 0xFF; ++code) {
            uint16_t const got = b.host.call(code, Bytes(minimumLength(code), 0)).code;
            SCOPED_TRACE(testing::Message() << (masterOnly ? "master" : "user") << " lock, code " << code);
            if (!kOpen.count(code) && !kUser.count(code) && !kMaster.count(code)) {
                EXPECT_EQ(got, 1);
            } else if (masterOnly && kMaster.count(code)) {
                EXPECT_EQ(got, 5);
            } else if (!masterOnly && !kOpen.count(code)) {
                EXPECT_EQ(got, 4);
            } else {
                EXPECT_NE(got, 4);
                EXPECT_NE(got, 5);
            }
        }
    }
}

TEST(SimLock, ChallengeIsGoodForOneUseInItsSessionAndMustMatch) {
    Bench b(locked("user", ""));
    Zelmor::AuthKey const key = makeAuthKey("user");
    Frame const challenge = b.host.call(0x30);
    Bytes other = challenge.payload;
    other[0] ^= 1;
    EXPECT_EQ(b.host.call(0x31, seal(other, key)).code, 3);
    // The failed attempt spent the challenge.
    EXPECT_EQ(b.host.call(0x31, seal(challenge.payload, key)).code, 3);

    Frame const second = b.host.call(0x30);
    EXPECT_NE(second.payload, challenge.payload);
    Bytes const good = seal(second.payload, key);
    TestHost stranger(b.device);
    EXPECT_EQ(stranger.call(0x31, good).code, 3);
    EXPECT_EQ(b.host.call(0x31, good).code, 0);
    EXPECT_EQ(b.host.call(0x31, good).code, 3);
}

// The session that sets a lock stays unlocked; the user password does not
// reach what the master password guards; clearing the user password leaves
// the master one guarding the changes; resetting the key clears both.
TEST(SimLock, LevelsOfUnlocking) {
    Bench b;
    Zelmor::AuthKey const user = makeAuthKey("user");
    EXPECT_EQ(lockStep(b.host, 0x31, makeAuthKey("")), 6);  // nothing to unlock
    EXPECT_EQ(lockStep(b.host, 0x33, user), 0);
    EXPECT_EQ(b.host.call(0x04).code, 0);
    EXPECT_EQ(lockStep(b.host, 0x34, makeAuthKey("master")), 0);

    TestHost host(b.device);
    EXPECT_EQ(lockStep(host, 0x34, makeAuthKey("x")), 4);
    EXPECT_EQ(lockStep(host, 0x31, user), 0);
    EXPECT_EQ(host.call(0x35).code, 5);
    EXPECT_EQ(lockStep(host, 0x33, makeAuthKey("new")), 5);
    EXPECT_EQ(lockStep(host, 0x31, makeAuthKey("master")), 0);
    EXPECT_EQ(host.call(0x37).code, 0);
    EXPECT_EQ(host.call(0x35).payload, Bytes(32, 0));
    TestHost other(b.device);
    EXPECT_EQ(other.call(0x04).code, 0);
    EXPECT_EQ(other.call(0x14, {1}).code, 5);
    EXPECT_EQ(lockStep(host, 0x33, user), 0);
    EXPECT_EQ(host.call(0x36).code, 0);
    EXPECT_EQ(other.call(0x14, {1}).code, 0);
}

// The lock status shows whether the session is still locked and whether a
// master password is set, whatever the session's level.
TEST(SimLock, LockStatusByModel) {
    struct Case {
        uint8_t revision;
        size_t offset;
        uint8_t locked, masterSet;
    };
    for (Case const c : {Case{0x41, 76, 0x10, 0x20}, Case{0x10, 43, 0x10, 0x20}, Case{0x21, 9, 0x01, 0x02}}) {
        SCOPED_TRACE(int(c.revision));
        Bench b(locked("user", "master", c.revision));
        EXPECT_EQ(b.host.call(0x01).payload[c.offset], c.locked | c.masterSet);
        for (char const* password : {"user", "master"}) {
            EXPECT_EQ(lockStep(b.host, 0x31, makeAuthKey(password)), 0);
            EXPECT_EQ(b.host.call(0x01).payload[c.offset], c.masterSet);
        }
    }
}

}  // namespace
