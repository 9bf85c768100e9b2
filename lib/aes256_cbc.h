#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

/// An AES-256 key with a CBC chaining value. Consecutive encrypt (or decrypt)
/// calls form one continuous CBC stream: each call leaves its last ciphertext
/// block as the IV of the next. Backed by OpenSSL's libcrypto.
class Aes256Cbc {
public:
    using Key = std::array<uint8_t, 32>;
    using Iv = std::array<uint8_t, 16>;

    Aes256Cbc();
    ~Aes256Cbc();
    Aes256Cbc(Aes256Cbc const&) = delete;
    Aes256Cbc& operator=(Aes256Cbc const&) = delete;

    /// Sets the key; the IV is left as it is.
    void init(Key const& key);
    /// Sets the chaining value; a null pointer sets it to zero.
    void setIv(uint8_t const* iv);
    Iv const& iv() const { return iv_; }
    Key const& key() const { return key_; }

    /// Encrypt or decrypt in place. `length` must be a multiple of 16; anything
    /// else is a programming error and throws std::logic_error.
    void encrypt(uint8_t* data, size_t length);
    void decrypt(uint8_t* data, size_t length);

private:
    void run(uint8_t* data, size_t length, bool encrypting);

    struct Context;
    std::unique_ptr<Context> ctx_;
    Key key_{};
    Iv iv_{};
    // Which of the two contexts holds iv_ as its own chaining value.
    enum class InStep : uint8_t { Neither, Encrypt, Decrypt };
    InStep inStep_ = InStep::Neither;
};
