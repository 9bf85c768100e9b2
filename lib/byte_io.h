#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// Little-endian access to packed wire records. Every wire record of the device
// protocol is little-endian and packed; these helpers are the only place that
// knows how to move a field in or out.

template <class T>
T readLe(uint8_t const* p) {
    static_assert(std::is_trivially_copyable_v<T>);
    if constexpr (std::is_floating_point_v<T>) {
        using U = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
        return std::bit_cast<T>(readLe<U>(p));
    } else if constexpr (std::endian::native == std::endian::little) {
        // One unaligned load; the byte loop below is what a big-endian host needs.
        T v;
        std::memcpy(&v, p, sizeof v);
        return v;
    } else {
        using U = std::make_unsigned_t<T>;
        U v = 0;
        for (size_t i = 0; i < sizeof(T); ++i) v |= static_cast<U>(static_cast<U>(p[i]) << (8 * i));
        return static_cast<T>(v);
    }
}

template <class T>
void writeLe(uint8_t* p, T value) {
    static_assert(std::is_trivially_copyable_v<T>);
    if constexpr (std::is_floating_point_v<T>) {
        using U = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
        writeLe<U>(p, std::bit_cast<U>(value));
    } else {
        auto v = static_cast<std::make_unsigned_t<T>>(value);
        for (size_t i = 0; i < sizeof(T); ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
    }
}

/// Reads fields in order from a buffer whose length the caller has checked.
class ByteReader {
public:
    ByteReader(uint8_t const* data, size_t length) : data_(data), length_(length) {}

    template <class T>
    T read() {
        T v = readLe<T>(data_ + pos_);
        pos_ += sizeof(T);
        return v;
    }

    /// A zero-padded character array of `size` bytes, cut at the first zero.
    std::string readString(size_t size) {
        auto const* p = reinterpret_cast<char const*>(data_ + pos_);
        pos_ += size;
        return std::string(p, strnlen(p, size));
    }

    void readBytes(uint8_t* out, size_t size) {
        std::memcpy(out, data_ + pos_, size);
        pos_ += size;
    }

    void skip(size_t size) { pos_ += size; }
    size_t position() const { return pos_; }
    size_t remaining() const { return length_ - pos_; }

private:
    uint8_t const* data_;
    size_t length_;
    size_t pos_ = 0;
};

/// Appends fields in order to a byte vector.
class ByteWriter {
public:
    explicit ByteWriter(std::vector<uint8_t>& out) : out_(out) {}

    template <class T>
    ByteWriter& write(T value) {
        size_t const at = out_.size();
        out_.resize(at + sizeof(T));
        writeLe<T>(out_.data() + at, value);
        return *this;
    }

    /// Writes `text` into a field of exactly `size` bytes, cut or zero-padded.
    ByteWriter& writeString(std::string_view text, size_t size) {
        size_t const n = text.size() < size ? text.size() : size;
        out_.insert(out_.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(n));
        out_.insert(out_.end(), size - n, 0);
        return *this;
    }

    ByteWriter& writeBytes(uint8_t const* data, size_t size) {
        out_.insert(out_.end(), data, data + size);
        return *this;
    }

private:
    std::vector<uint8_t>& out_;
};
