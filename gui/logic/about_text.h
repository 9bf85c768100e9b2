#pragma once

#include <cstdint>
#include <string>

/// The program's name as its windows show it.
inline constexpr char kProgramName[] = "Zelmor Manager";
/// The program's version: high byte major, low byte minor, shown "%X.%02X".
inline constexpr uint16_t kProgramVersion = 0x0021;

/// The program and its version, "Zelmor Manager v0.21.".
std::string programLine();

/// The first line of the About box, programLine(), and the two line feeds
/// that part it from what follows.
std::string aboutText();
