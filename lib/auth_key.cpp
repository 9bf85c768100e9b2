#include "auth_key.h"

#include <openssl/evp.h>

#include <stdexcept>

Zelmor::AuthKey makeAuthKey(std::string_view password) {
    Zelmor::AuthKey key{};
    unsigned int length = 0;
    if (EVP_Digest(password.data(), password.size(), key.data(), &length, EVP_sha256(), nullptr) != 1 ||
        length != key.size())
        throw std::runtime_error("SHA-256 failed");
    return key;
}
