#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Checks behind the small entry dialogs, run on every change of their text.
// Texts are UTF-8, as wxString::utf8_string() gives them.

/// Number of Unicode code points in UTF-8 text: the characters a user types
/// one at a time (an accent typed as a combining mark counts on its own).
size_t codePointCount(std::string_view utf8);

/// What is wrong with a string entry, or "" when it may be accepted. In this
/// order: more than `maxLength` code points gives "string is too long"; with
/// `confirm`, a confirmation that differs from the entry in any character
/// gives "passwords do not match" (two empty fields match). A text of exactly
/// `maxLength` code points is accepted.
std::string enterStringProblem(std::string_view entry, std::string_view confirmation, size_t maxLength, bool confirm);

/// Largest calibration current, in amperes either way, that a device accepts.
inline constexpr double kMaxCalibrationCurrent = 2000;

/// A calibration current as read from its entry field.
struct CalibrationCurrentEntry {
    /// The current in amperes; meaningful only when `problem` is empty.
    float amperes = 0;
    /// What is wrong with the text, or "" when it may be sent to a device.
    std::string problem;
};

/// Reads a calibration current typed by the user: a decimal number of amperes
/// with an optional sign, '.' or ',' as decimal separator, no exponent and no
/// digit grouping, optionally followed by the unit "A" (or "a"); blanks around
/// the number and before the unit are ignored. Problems: "value is empty" for
/// a field that is empty or blank, "not a number" for any other text, and
/// "must be between -2000 A and 2000 A, not 0" for zero, a magnitude above
/// kMaxCalibrationCurrent or one too small for a float.
CalibrationCurrentEntry readCalibrationCurrent(std::string_view text);
