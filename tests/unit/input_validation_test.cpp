// The checks behind the small entry dialogs: lengths in characters, the
// password confirmation, and the calibration current as a user may type it.
#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "input_validation.h"

namespace {

constexpr size_t kUnlimited = std::numeric_limits<size_t>::max();
constexpr char const* kTooLong = "string is too long";
constexpr char const* kMismatch = "passwords do not match";
constexpr char const* kRange = "must be between -2000 A and 2000 A, not 0";

// Lengths are counted in characters, not bytes; the confirmation must be the
// same characters, not ones that look alike.
TEST(EnterStringProblemTest, RefusesTextsLongerThanTheMaximumOrUnconfirmed) {
    struct Case {
        std::string_view entry;
        std::string_view confirmation;
        size_t maxLength;
        bool confirm;
        std::string problem;
    } const cases[] = {
        {"", "", 0, false, ""},
        {"a", "", 0, false, kTooLong},
        {"abcd", "", 4, false, ""},
        {"abcde", "", 4, false, kTooLong},
        {"5\xE2\x82\xAC", "", 2, false, ""},                     // euro sign, 3 bytes
        {"a\xCC\x88", "", 1, false, kTooLong},                   // a and a combining diaeresis
        {"\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", "", 4, false, ""},  // 8 bytes, 4 characters
        {"x\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", "", 4, false, kTooLong},
        {"\xF0\x9F\x94\x8B", "", 1, false, ""},  // battery emoji, 4 bytes
        {"secret", "secret", kUnlimited, true, ""},
        {"secret", "", kUnlimited, true, kMismatch},
        {"secret", "secret ", kUnlimited, true, kMismatch},
        {"\xC3\xA4", "a\xCC\x88", kUnlimited, true, kMismatch},
        {"secret", "other", kUnlimited, false, ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(std::string(c.entry) + " / " + std::string(c.confirmation) + " / " + std::to_string(c.maxLength));
        EXPECT_EQ(enterStringProblem(c.entry, c.confirmation, c.maxLength, c.confirm), c.problem);
    }
}

TEST(CalibrationCurrentTest, ReadsDecimalAmperes) {
    struct Case {
        std::string_view text;
        float amperes;
    } const cases[] = {
        {"12,5", 12.5f}, {".5", 0.5f},      {"5.", 5.0f},        {"  -2,5 A  ", -2.5f}, {"10 a", 10.0f},
        {"+7", 7.0f},    {"2000", 2000.0f}, {"-2000", -2000.0f}, {"0.001", 0.001f},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(std::string(c.text));
        auto const entry = readCalibrationCurrent(c.text);
        EXPECT_EQ(entry.problem, "");
        EXPECT_FLOAT_EQ(entry.amperes, c.amperes);
    }
}

TEST(CalibrationCurrentTest, NamesWhatIsWrong) {
    struct Case {
        std::string problem;
        std::vector<std::string> texts;
    } const cases[] = {
        {"value is empty", {"", " \t "}},
        {"not a number",
         {"A", "-", ".", "1.2.3", "1,5.0", "1e3", "1 000", "- 5", "--5", "+-5", "5AA", "A5", "0x10", "inf"}},
        {kRange, {"0", "-0", "0,000", "2000.001", "-2000.5", std::string(400, '9'), "0." + std::string(60, '0') + "1"}},
    };
    for (auto const& c : cases) {
        for (auto const& text : c.texts) EXPECT_EQ(readCalibrationCurrent(text).problem, c.problem) << text;
    }
}

}  // namespace
