#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base64.h"
#include "hex.h"

namespace {

std::vector<uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

std::string encode(std::vector<uint8_t> const& bytes, Base64Mode mode) {
    return base64Encode(bytes.data(), bytes.size(), mode);
}

TEST(Base64Test, GoldenVectorsInEveryMode) {
    struct Case {
        std::vector<uint8_t> input;
        std::string standard;
        std::string urlSafe;
        std::string percentEncoded;
    };
    Case const cases[] = {
        // RFC 4648, section 10.
        {bytesOf(""), "", "", ""},
        {bytesOf("f"), "Zg==", "Zg==", "Zg"},
        {bytesOf("fo"), "Zm8=", "Zm8=", "Zm8"},
        {bytesOf("foo"), "Zm9v", "Zm9v", "Zm9v"},
        // Values 62 and 63, where the modes differ.
        {{0xFB, 0xFF}, "+/8=", "-_8=", "%2B%2F8"},
        {{0xFB, 0xF0}, "+/A=", "-_A=", "%2B%2FA"},
        {{0x00, 0x00, 0x00, 0x00}, "AAAAAA==", "AAAAAA==", "AAAAAA"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.standard);
        EXPECT_EQ(encode(c.input, Base64Mode::Standard), c.standard);
        EXPECT_EQ(encode(c.input, Base64Mode::UrlSafe), c.urlSafe);
        EXPECT_EQ(encode(c.input, Base64Mode::PercentEncoded), c.percentEncoded);
        EXPECT_EQ(base64Decode(c.standard, Base64Mode::Standard), c.input);
        EXPECT_EQ(base64Decode(c.urlSafe, Base64Mode::UrlSafe), c.input);
    }
}

TEST(Base64Test, RejectsMalformedText) {
    struct Case {
        std::string_view text;
        Base64Mode mode;
    };
    Case const cases[] = {
        {"Zg", Base64Mode::Standard},        // padding missing
        {"Zg=", Base64Mode::Standard},       // length not a multiple of four
        {"Z===", Base64Mode::Standard},      // three padding symbols
        {"====", Base64Mode::UrlSafe},       // padding only
        {"Zg==Zg==", Base64Mode::Standard},  // padding inside
        {"=Zm9", Base64Mode::Standard},      // padding first
        {"Zh==", Base64Mode::Standard},      // unused bits not zero
        {"-_8=", Base64Mode::Standard},      // URL-safe symbols in standard text
        {"+/8=", Base64Mode::UrlSafe},       // standard symbols in URL-safe text
        {"Zm 9", Base64Mode::Standard},      // whitespace
        {"Zm9\xff", Base64Mode::Standard},   // not ASCII
        {std::string_view("Zm\0v", 4), Base64Mode::Standard},
        {"Zm9v", Base64Mode::PercentEncoded},  // never read back
    };
    for (auto const& c : cases) {
        EXPECT_FALSE(base64Decode(c.text, c.mode)) << "'" << c.text << "' mode " << static_cast<int>(c.mode);
    }
}

TEST(HexTest, EncodesLowerCaseDecodesEitherCaseAndRejectsMalformedText) {
    std::vector<uint8_t> all(256);
    for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<uint8_t>(i);
    std::string const text = hexEncode(all.data(), all.size());
    EXPECT_EQ(text.substr(0x7E * 2, 8), "7e7f8081");
    EXPECT_EQ(hexDecode(text), all);
    EXPECT_EQ(hexDecode("ABcdEF"), (std::vector<uint8_t>{0xAB, 0xCD, 0xEF}));
    EXPECT_EQ(hexDecode(""), std::vector<uint8_t>{});
    for (std::string_view bad : {"0", "abc", "0g", "G0", "0x12", " 12", "1-", "\xff\xff", "::", "@@", "``", "//"})
        EXPECT_FALSE(hexDecode(bad)) << "'" << bad << "'";
}

}  // namespace
