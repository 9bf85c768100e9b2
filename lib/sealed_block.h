#pragma once

#include <array>
#include <cstdint>

#include "aes256_cbc.h"
#include "zelmor.h"

/// The 32-byte key that the device firmware and the application share for the
/// password exchange. It keys the authentication context that seals blocks.
inline constexpr std::array<uint8_t, 32> kSharedAuthenticationKey = {
    0x5a, 0x4c, 0x4d, 0x52, 0x2d, 0x61, 0x75, 0x74, 0x68, 0x2d, 0x6b, 0x65, 0x79, 0x2d, 0x76, 0x31,
    0x9e, 0x37, 0x79, 0xb9, 0x7f, 0x4a, 0x7c, 0x15, 0xf3, 0x9c, 0xc0, 0x60, 0x5c, 0xed, 0xc8, 0x34,
};

/// Size of the sealed block sent in the second step of a lock exchange.
inline constexpr size_t kSealedBlockSize = 80;
/// Size of the challenge the device sends in the first step.
inline constexpr size_t kChallengeSize = 32;

using SealedBlock = std::array<uint8_t, kSealedBlockSize>;

/// Seals a challenge and a password key: 16 random bytes, the challenge, the
/// key, encrypted with `authentication` (keyed with the shared key) after its
/// IV was set to 16 fresh random bytes. The IV is not sent: the random first
/// block lets the device decrypt with any IV and still recover the rest.
/// Returns false when the system's random source fails.
bool sealBlock(Aes256Cbc& authentication, uint8_t const* challenge, Zelmor::AuthKey const& key, SealedBlock& out);
