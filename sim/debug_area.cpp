#include "debug_area.h"

#include <algorithm>

namespace sim {

void DebugArea::note(uint32_t deviceTime, std::string_view event) {
    std::string line = std::to_string(deviceTime);
    line += ' ';
    line += event.substr(0, kCapacity / 2);
    line += '\n';
    text_ += line;
    if (text_.size() <= kCapacity) return;
    // Drop whole lines from the front so the area always starts at a line.
    size_t const cut = text_.find('\n', text_.size() - kCapacity - 1);
    text_.erase(0, cut == std::string::npos ? text_.size() : cut + 1);
}

std::vector<uint8_t> DebugArea::read(uint32_t offset, uint32_t length) const {
    if (offset >= text_.size()) return {};
    size_t const end = std::min<size_t>(text_.size(), static_cast<size_t>(offset) + length);
    return std::vector<uint8_t>(text_.begin() + offset, text_.begin() + static_cast<std::ptrdiff_t>(end));
}

}  // namespace sim
