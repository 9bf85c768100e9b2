#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// A Bluetooth UUID: 16 bits (an assigned number, shorthand for the Bluetooth
/// base UUID 0000xxxx-0000-1000-8000-00805f9b34fb) or a full 128 bits.
class BleUUID {
public:
    /// The 16 bytes as the Attribute Protocol carries them: least significant first.
    using Bytes = std::array<uint8_t, 16>;

    BleUUID() = default;
    explicit BleUUID(uint16_t value) : short_(value), is16Bit_(true) {}
    explicit BleUUID(Bytes const& wireBytes) : bytes_(wireBytes), is16Bit_(false) {}

    /// Four hexadecimal digits ("180f") or the 8-4-4-4-12 form, either case;
    /// nothing for any other text.
    static std::optional<BleUUID> parse(std::string_view text);
    /// From an attribute value or a discovery entry: 2 or 16 bytes, least
    /// significant first; nothing for any other length.
    static std::optional<BleUUID> fromWire(uint8_t const* data, size_t length);

    bool is16Bit() const { return is16Bit_; }
    /// The assigned number of a 16-bit UUID; 0 for a 128-bit one.
    uint16_t value16() const { return is16Bit_ ? short_ : 0; }
    /// The full 128 bits, least significant first (a 16-bit UUID inside the base).
    Bytes wireBytes128() const;

    /// "180f" for a 16-bit UUID, the lower-case 8-4-4-4-12 form for a 128-bit one.
    std::string toString() const;
    /// Always the 8-4-4-4-12 form: 16-bit UUIDs inside the base UUID.
    std::string toString128() const;

    /// Equal when they name the same 128 bits, whatever their width.
    bool operator==(BleUUID const& other) const { return wireBytes128() == other.wireBytes128(); }

private:
    Bytes bytes_{};
    uint16_t short_ = 0;
    bool is16Bit_ = true;
};
