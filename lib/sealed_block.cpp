#include "sealed_block.h"

#include <cstring>

#include "random_bytes.h"

bool sealBlock(Aes256Cbc& authentication, uint8_t const* challenge, Zelmor::AuthKey const& key, SealedBlock& out) {
    Aes256Cbc::Iv iv;
    if (!fillRandom(out.data(), 16) || !fillRandom(iv.data(), iv.size())) return false;
    std::memcpy(out.data() + 16, challenge, kChallengeSize);
    std::memcpy(out.data() + 48, key.data(), key.size());
    authentication.setIv(iv.data());
    authentication.encrypt(out.data(), out.size());
    return true;
}
