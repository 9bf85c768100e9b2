#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// The device's debug area: a text log of its own events, one line each,
/// dropping the oldest lines to stay within its size.
class DebugArea {
public:
    static constexpr size_t kCapacity = 64 * 1024;

    /// Appends "<device time> <event>\n".
    void note(uint32_t deviceTime, std::string_view event);
    /// Bytes [offset, offset + length) clipped to the area.
    std::vector<uint8_t> read(uint32_t offset, uint32_t length) const;
    void erase() { text_.clear(); }
    std::string const& text() const { return text_; }

private:
    std::string text_;
};

}  // namespace sim
