#include "about_text.h"

#include <fmt/core.h>

std::string programLine() {
    return fmt::format("{} v{:X}.{:02X}.", kProgramName, kProgramVersion >> 8, kProgramVersion & 0xFF);
}

std::string aboutText() { return programLine() + "\n\n"; }
