#include "aes256_cbc.h"

#include <openssl/evp.h>

#include <climits>
#include <cstring>
#include <stdexcept>

struct Aes256Cbc::Context {
    EVP_CIPHER_CTX* encrypt = EVP_CIPHER_CTX_new();
    EVP_CIPHER_CTX* decrypt = EVP_CIPHER_CTX_new();
    ~Context() {
        EVP_CIPHER_CTX_free(encrypt);
        EVP_CIPHER_CTX_free(decrypt);
    }
};

Aes256Cbc::Aes256Cbc() : ctx_(std::make_unique<Context>()) {
    if (!ctx_->encrypt || !ctx_->decrypt) throw std::bad_alloc();
    init(key_);
}

Aes256Cbc::~Aes256Cbc() = default;

void Aes256Cbc::init(Key const& key) {
    key_ = key;
    // The key schedule is expanded once here; each call below only resets the IV.
    if (EVP_EncryptInit_ex(ctx_->encrypt, EVP_aes_256_cbc(), nullptr, key_.data(), nullptr) != 1 ||
        EVP_DecryptInit_ex(ctx_->decrypt, EVP_aes_256_cbc(), nullptr, key_.data(), nullptr) != 1)
        throw std::runtime_error("AES-256-CBC initialisation failed");
    EVP_CIPHER_CTX_set_padding(ctx_->encrypt, 0);
    EVP_CIPHER_CTX_set_padding(ctx_->decrypt, 0);
    inStep_ = InStep::Neither;
}

void Aes256Cbc::setIv(uint8_t const* iv) {
    if (iv)
        std::memcpy(iv_.data(), iv, iv_.size());
    else
        iv_.fill(0);
    inStep_ = InStep::Neither;
}

void Aes256Cbc::encrypt(uint8_t* data, size_t length) { run(data, length, true); }

void Aes256Cbc::decrypt(uint8_t* data, size_t length) { run(data, length, false); }

void Aes256Cbc::run(uint8_t* data, size_t length, bool encrypting) {
    if ((length & 0xF) != 0) throw std::logic_error("(size & 0xF) == 0");
    if (length == 0) return;
    if (length > INT_MAX) throw std::logic_error("AES-256-CBC block run too long");
    Iv nextIv;
    // Decrypting in place overwrites the last ciphertext block: keep it first.
    if (!encrypting) std::memcpy(nextIv.data(), data + length - 16, 16);
    EVP_CIPHER_CTX* c = encrypting ? ctx_->encrypt : ctx_->decrypt;
    InStep const direction = encrypting ? InStep::Encrypt : InStep::Decrypt;
    // A context carries its CBC chain on from one update to the next, so it is
    // given the IV only when the chain was set anew or the other direction ran
    // last: setting it costs more than encrypting a short frame.
    if (inStep_ != direction && EVP_CipherInit_ex(c, nullptr, nullptr, nullptr, iv_.data(), encrypting ? 1 : 0) != 1)
        throw std::runtime_error("AES-256-CBC operation failed");
    int outLength = 0;
    if (EVP_CipherUpdate(c, data, &outLength, data, static_cast<int>(length)) != 1 ||
        outLength != static_cast<int>(length)) {
        inStep_ = InStep::Neither;
        throw std::runtime_error("AES-256-CBC operation failed");
    }
    if (encrypting) std::memcpy(nextIv.data(), data + length - 16, 16);
    iv_ = nextIv;
    inStep_ = direction;
}
