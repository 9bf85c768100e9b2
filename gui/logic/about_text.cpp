#include "about_text.h"

#include <fmt/core.h>

std::string aboutText() {
    return fmt::format("{} v{:X}.{:02X}.\n\n", kProgramName, kProgramVersion >> 8, kProgramVersion & 0xFF);
}
