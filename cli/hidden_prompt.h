#pragma once

#include <string>

/// True when standard input is a terminal, where a password can be typed.
bool terminalInput();

/// Shows `prompt` on the terminal (never on standard output, which may be a
/// script's JSON) and reads one line from standard input with echo off. The
/// terminal's settings come back on every way out: a line, end of input, an
/// error, and Ctrl-C, SIGTERM, SIGHUP or SIGQUIT, which throw the
/// CommandError "Cancelled." with status 130 instead of ending the program
/// with echo off.
std::string promptHidden(char const* prompt);

/// Asks for a new password twice; throws a usage CommandError when the two
/// differ or it is empty.
std::string promptNewPassword();
