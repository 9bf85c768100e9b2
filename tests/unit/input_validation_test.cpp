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

TEST(EnterStringProblemTest, CountsCharactersAndRefusesTextsLongerThanTheMaximum) {
    struct Case {
        std::string_view entry;
        size_t characters;
        size_t maxLength;
        std::string problem;
    } const cases[] = {
        {"", 0, 0, ""},
        {"a", 1, 0, kTooLong},
        {"abcd", 4, 4, ""},
        {"abcde", 5, 4, kTooLong},
        {"5\xE2\x82\xAC", 2, 2, ""},                     // euro sign, 3 bytes
        {"a\xCC\x88", 2, 1, kTooLong},                   // a and a combining diaeresis
        {"\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", 4, 4, ""},  // 8 bytes, 4 characters
        {"x\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", 5, 4, kTooLong},
        {"\xF0\x9F\x94\x8B", 1, 1, ""},  // battery emoji, 4 bytes
        {"long text, no limit", 19, kUnlimited, ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(std::string(c.entry) + " / " + std::to_string(c.maxLength));
        EXPECT_EQ(codePointCount(c.entry), c.characters);
        EXPECT_EQ(enterStringProblem(c.entry, "", c.maxLength, false), c.problem);
    }
}

TEST(EnterStringProblemTest, ConfirmationMustEqualTheEntry) {
    struct Case {
        std::string_view entry;
        std::string_view confirmation;
        bool confirm;
        std::string problem;
    } const cases[] = {
        {"secret", "secret", true, ""},
        {"secret", "", true, kMismatch},
        {"secret", "secret ", true, kMismatch},
        {"\xC3\xA4", "a\xCC\x88", true, kMismatch},  // looks alike, other characters
        {"secret", "other", false, ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(std::string(c.entry) + " / " + std::string(c.confirmation));
        EXPECT_EQ(enterStringProblem(c.entry, c.confirmation, kUnlimited, c.confirm), c.problem);
    }
}

TEST(CalibrationCurrentTest, ReadsDecimalAmperes) {
    struct Case {
        std::string_view text;
        float amperes;
    } const cases[] = {
        {"12.5", 12.5f},     {"12,5", 12.5f},   {"-3.25", -3.25f}, {"+7", 7.0f},          {".5", 0.5f},
        {"5.", 5.0f},        {"10A", 10.0f},    {"10 a", 10.0f},   {"  -2,5 A  ", -2.5f}, {"2000", 2000.0f},
        {"-2000", -2000.0f}, {"0.001", 0.001f}, {"\t007\t", 7.0f},
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
