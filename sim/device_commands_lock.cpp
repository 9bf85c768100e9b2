#include <algorithm>
#include <cstring>

#include "aes256_cbc.h"
#include "device_commands.h"
#include "random_bytes.h"
#include "sealed_block.h"

namespace sim {

namespace {

constexpr size_t kFillerLength = 16;

// Opens the sealed block of a lock exchange and spends the session's challenge.
// The sender's IV is unknown, so only the first block, which is filler, comes
// out garbled. Returns the password key, or nothing when the block does not
// carry the challenge this session was given.
std::optional<AuthKey> openSealedBlock(CommandContext& c) {
    std::optional<std::array<uint8_t, kChallengeLength>> const challenge = c.session.challenge;
    c.session.challenge.reset();
    if (!challenge) return std::nullopt;
    SealedBlock block;
    std::memcpy(block.data(), c.payload, block.size());
    Aes256Cbc cipher;
    cipher.init(kSharedAuthenticationKey);
    cipher.setIv(nullptr);
    cipher.decrypt(block.data(), block.size());
    if (!std::equal(challenge->begin(), challenge->end(), block.begin() + kFillerLength)) return std::nullopt;
    AuthKey key;
    std::copy_n(block.begin() + kFillerLength + kChallengeLength, key.size(), key.begin());
    return key;
}

}  // namespace

Status getChallenge(CommandContext& c) {
    std::array<uint8_t, kChallengeLength> challenge;
    if (!fillRandom(challenge.data(), challenge.size())) return Status::RequestFailed;
    c.session.challenge = challenge;
    c.answer.assign(challenge.begin(), challenge.end());
    return Status::Success;
}

Status unlock(CommandContext& c) {
    std::optional<AuthKey> const key = openSealedBlock(c);
    if (!key) return Status::RequestFailed;
    if (c.device.masterKey && *key == *c.device.masterKey) {
        c.session.level = AccessLevel::Master;
        c.device.note("unlocked at master level");
    } else if (c.device.userKey && *key == *c.device.userKey) {
        c.session.level = std::max(c.session.level, AccessLevel::User);
        c.device.note("unlocked at user level");
    } else {
        c.device.note("unlock refused: wrong password");
        return Status::WrongPassword;
    }
    return Status::Success;
}

Status setUserPassword(CommandContext& c) {
    std::optional<AuthKey> const key = openSealedBlock(c);
    if (!key) return Status::RequestFailed;
    c.device.userKey = *key;
    c.session.level = std::max(c.session.level, AccessLevel::User);
    c.device.note("user password set");
    return Status::Success;
}

Status setMasterPassword(CommandContext& c) {
    std::optional<AuthKey> const key = openSealedBlock(c);
    if (!key) return Status::RequestFailed;
    c.device.masterKey = *key;
    c.session.level = AccessLevel::Master;
    c.device.note("master password set");
    return Status::Success;
}

Status getAuthKey(CommandContext& c) {
    AuthKey const key = c.device.userKey.value_or(AuthKey{});
    c.answer.assign(key.begin(), key.end());
    return Status::Success;
}

Status resetAuthKey(CommandContext& c) {
    c.device.userKey.reset();
    c.device.masterKey.reset();
    c.device.note("passwords reset");
    return Status::Success;
}

Status clearUserPassword(CommandContext& c) {
    c.device.userKey.reset();
    c.device.note("user password cleared");
    return Status::Success;
}

Status clearMasterPassword(CommandContext& c) {
    c.device.masterKey.reset();
    c.device.note("master password cleared");
    return Status::Success;
}

}  // namespace sim
