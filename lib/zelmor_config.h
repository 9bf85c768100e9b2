#pragma once

#include <array>
#include <cstdint>

/// The device configuration, carried whole as the 104-byte image that command
/// 0x20 reads and 0x21 writes back.
class ZelmorConfig {
public:
    static constexpr size_t kSize = 104;
    using Image = std::array<uint8_t, kSize>;

    ZelmorConfig() = default;
    explicit ZelmorConfig(Image const& image) : image_(image) {}

    Image const& image() const { return image_; }
    Image& image() { return image_; }

    bool operator==(ZelmorConfig const&) const = default;

private:
    Image image_{};
};
