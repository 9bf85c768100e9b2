// What the windows decide without a display: how a device window reaches its
// device and how often it polls, and how it tells that a link ended.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "device_commands_text.h"
#include "device_window_rules.h"
#include "input_validation.h"

namespace {

TEST(DeviceWindowRulesTest, ChoosesTheLinkByModelAndKnownAddress) {
    using enum LinkChoice;
    uint32_t const lan = htonl(INADDR_LOOPBACK);
    // Bluetooth LE models never use the LAN, even when an address is known.
    std::tuple<uint8_t, uint32_t, LinkChoice> const cases[] = {
        {0x21, lan, Bluetooth}, {0x31, lan, Bluetooth}, {0x50, lan, Bluetooth}, {0x10, lan, Lan},
        {0x41, lan, Lan},       {0x10, 0, Hub},         {0x4F, 0, Hub},
    };
    for (auto const& [revision, ipAddress, link] : cases) {
        Zelmor::DeviceIdentifier id;
        id.hardwareRevision = revision;
        id.ipAddress = ipAddress;
        EXPECT_EQ(chooseLink(id), link) << unsigned{revision} << " " << ipAddress;
    }
    // A WiFi model in access-point mode is reached on the network it opens.
    Zelmor::DeviceIdentifier const accessPoint = wifiDirectIdentifier();
    EXPECT_EQ(accessPoint.ipAddress, htonl(0xC0A86401));  // 192.168.100.1
    EXPECT_EQ(chooseLink(accessPoint), Lan);
    EXPECT_EQ(accessPoint.name, "Zelmor-V access point");
    // The hub is polled less often than a direct link.
    EXPECT_EQ(monitorPollMs(true), 1000u);
    EXPECT_EQ(monitorPollMs(false), 2000u);
}

TEST(DeviceWindowRulesTest, TellsTheUserWhyALinkEndedUnlessItWasClosedHere) {
    using enum Zelmor::DisconnectReason;
    std::pair<Zelmor::DisconnectReason, char const*> const cases[] = {{ClosedLocally, nullptr},
                                                                      {ConnectFailed, "Device failed to connect"},
                                                                      {ConnectionLost, "Device disconnected"},
                                                                      {Reserved, "Device disconnected"}};
    for (auto const& [reason, message] : cases) {
        LinkEndOutcome const outcome = linkEndOutcome(reason);
        EXPECT_EQ(outcome.showMessage, message != nullptr) << +static_cast<uint8_t>(reason);
        EXPECT_STREQ(outcome.message, message);
    }
}

// The checks behind the small entry dialogs: lengths in characters, the
// password confirmation, and the calibration current as a user may type it.
constexpr size_t kUnlimited = std::numeric_limits<size_t>::max();
constexpr char const* kTooLong = "string is too long";
constexpr char const* kMismatch = "passwords do not match";
constexpr char const* kRange = "must be between -2000 A and 2000 A, not 0";

// Lengths are counted in characters, not bytes; the confirmation must be the
// same characters, not ones that look alike.
TEST(DeviceCommandsTextTest, ClockQuestionInTheLocalZoneOnATwelveHourClock) {
    ::setenv("TZ", "Europe/Lisbon", 1);
    ::tzset();
    std::pair<std::time_t, char const*> const cases[] = {
        {978307200, "12:00 AM - Jan 01, 2001"},   // midnight, winter time (UTC)
        {993988800, "01:00 PM - Jul 01, 2001"},   // noon UTC is 1 PM in summer time
        {1782860399, "11:59 PM - Jun 30, 2026"},  // the last minute of a day
    };
    for (auto const& [time, shown] : cases)
        EXPECT_EQ(clockQuestion(time), std::string("The device clock will be set to:\n") + shown) << time;
    ::unsetenv("TZ");
    ::tzset();
}

TEST(DeviceCommandsTextTest, NamesOfEightBytesOnBluetoothModelsOnly) {
    EXPECT_EQ(std::tuple(deviceNameMaxLength(0x41), deviceNameMaxLength(0x10), deviceNameMaxLength(0x30)),
              std::tuple(32u, 32u, 8u));
}

TEST(DeviceCommandsTextTest, OnlyALockRefusalAsksForTheCurrentPassword) {
    EXPECT_STREQ(currentPasswordPrompt(Zelmor::ResponseCode::LockedByUserPassword), "Enter user password");
    EXPECT_STREQ(currentPasswordPrompt(Zelmor::ResponseCode::LockedByMasterPassword), "Enter master password");
    for (auto code : {Zelmor::ResponseCode::Success, Zelmor::ResponseCode::RequestFailed,
                      Zelmor::ResponseCode::PasswordRejected, Zelmor::ResponseCode::RequestTimeout})
        EXPECT_EQ(currentPasswordPrompt(code), nullptr);
}

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
