#pragma once

#include <string>

// Passwords and device links are secrets: text on the command line is open to
// every user of the machine (the process list shows it), a file or the
// environment is not. Each secret is taken from the first of these given.

/// Where the device's current password is looked for after --password and
/// --password-file.
inline constexpr char const* kPasswordVariable = "ZELMOR_PASSWORD";
/// Where the new password of `lock` is looked for after --new-password and
/// --new-password-file.
inline constexpr char const* kNewPasswordVariable = "ZELMOR_NEW_PASSWORD";

/// The first line of `path` without its "\n" or "\r\n". Throws a usage
/// CommandError naming `option` and the file, never its content, when the
/// file cannot be read or its first line is empty.
std::string secretFromFile(std::string const& path, char const* option);

/// `text` when given, else the first line of `file` (read with
/// secretFromFile, `fileOption` naming it in errors) when given, else the
/// environment variable `variable` (none when null). Empty when none of them
/// holds the secret.
std::string givenSecret(std::string const& text, std::string const& file, char const* fileOption, char const* variable);
