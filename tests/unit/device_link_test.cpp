#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "device_link.h"

namespace {

using Identifier = Zelmor::DeviceIdentifier;

// Written out by hand from the fields of goldenIdentifier(); c and k hold the
// URL-safe symbols "-" and "_" so that both alphabets are exercised.
constexpr std::string_view kGoldenName = "n=426f6174";
constexpr std::string_view kGoldenSerial = "s=0000000000001a2b";
constexpr std::string_view kGoldenRevision = "h=41";
constexpr std::string_view kGoldenChannel = "c=----_-ABEDJUdpi63P4-Pw==";
constexpr std::string_view kGoldenKey = "k=4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8=";
constexpr std::string_view kGoldenFields[] = {kGoldenName, kGoldenSerial, kGoldenRevision, kGoldenChannel, kGoldenKey};
constexpr std::string_view kGoldenLink =
    "https://zelmor.link?n=426f6174&s=0000000000001a2b&h=41&c=----_-ABEDJUdpi63P4-Pw==&"
    "k=4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8=";

Identifier goldenIdentifier() {
    Identifier id;
    id.name = "Boat";
    id.serial = 0x1A2B;
    id.hardwareRevision = 0x41;
    id.channelId = {0xFB, 0xEF, 0xBE, 0xFF, 0xE0, 0x01, 0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE, 0x3E, 0x3F};
    for (size_t i = 0; i < id.key.size(); ++i) id.key[i] = static_cast<uint8_t>(0xE0 + i);
    return id;
}

// A link on the default host with the given fields joined by "&".
std::string linkOf(std::vector<std::string_view> const& fields) {
    std::string link = "https://zelmor.link?";
    for (size_t i = 0; i < fields.size(); ++i) link += (i > 0 ? "&" : "") + std::string(fields[i]);
    return link;
}

// The golden fields with the one named like `replacement` replaced, or left out when it is a bare name.
std::string with(std::string_view replacement) {
    std::vector<std::string_view> fields;
    for (auto f : kGoldenFields) {
        if (f[0] != replacement[0])
            fields.push_back(f);
        else if (replacement.size() > 1)
            fields.push_back(replacement);
    }
    return linkOf(fields);
}

TEST(DeviceLinkTest, GoldenLinksBothWaysWithoutLocalAddresses) {
    Identifier id = goldenIdentifier();
    id.bluetoothAddress = 0xC0FFEE123456;
    id.ipAddress = 0x0100007F;
    EXPECT_EQ(makeDeviceLink(id), kGoldenLink);
    DeviceLinkResult result = parseDeviceLink(kGoldenLink);
    ASSERT_TRUE(result.identifier) << result.error;
    EXPECT_EQ(*result.identifier, goldenIdentifier());
    EXPECT_EQ(result.error, "");

    // Every field keeps its width, and an empty name is a name.
    std::string const zero =
        "https://zelmor.link?n=&s=0000000000000000&h=00&c=AAAAAAAAAAAAAAAAAAAAAA==&"
        "k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=";
    EXPECT_EQ(makeDeviceLink(Identifier{}), zero);
    result = parseDeviceLink(zero);
    ASSERT_TRUE(result.identifier) << result.error;
    EXPECT_EQ(*result.identifier, Identifier{});

    // A name is any bytes, zeros too; a longer one goes out as its first 32.
    Identifier named = goldenIdentifier();
    named.name = std::string(1, '\0') + std::string(39, '\xff');
    result = parseDeviceLink(makeDeviceLink(named));
    ASSERT_TRUE(result.identifier) << result.error;
    named.name.resize(kDeviceLinkMaxNameBytes);
    EXPECT_EQ(*result.identifier, named);
}

TEST(DeviceLinkTest, AcceptsLinksAsUsersPasteThem) {
    std::string const golden(kGoldenLink);
    std::string const query = golden.substr(golden.find('?'));
    std::string const accepted[] = {
        " \t\r\n" + golden + "\n\r\t ",
        "https://zelmor.link/" + query,
        "HTTPS://Zelmor.Link" + query,
        "https://relay.example.org:8443" + query,
        "https://127.0.0.1/" + query,
        // Any field order, upper-case hex, empty parts.
        linkOf({kGoldenKey, kGoldenChannel, kGoldenRevision, kGoldenSerial, kGoldenName}),
        linkOf({"n=426F6174", "s=0000000000001A2B", kGoldenRevision, kGoldenChannel, kGoldenKey}),
        linkOf({kGoldenName, "", kGoldenSerial, kGoldenRevision, kGoldenChannel, kGoldenKey, ""}),
        // Base64 as mail programs and URL tools leave it.
        with("c=++++/+ABEDJUdpi63P4+Pw=="),
        with("c=----_-ABEDJUdpi63P4-Pw"),
        with("c=%2B%2b--%2f-ABEDJUdpi63P4-Pw%3D%3d"),
        with("c=-+-+/-ABEDJUdpi63P4+Pw="),
    };
    for (auto const& link : accepted) {
        auto const result = parseDeviceLink(link);
        ASSERT_TRUE(result.identifier) << link << ": " << result.error;
        EXPECT_EQ(*result.identifier, goldenIdentifier()) << link;
    }
}

// Each message with the links that must draw it; when a link has several
// problems, the first in text order is reported.
TEST(DeviceLinkTest, RejectsMalformedLinksSayingWhatIsWrong) {
    std::string const golden(kGoldenLink);
    std::string const query = golden.substr(golden.find('?'));
    struct Case {
        std::string message;
        std::vector<std::string> links;
    } const cases[] = {
        {"The link does not start with https://", {"", " \n\t ", "http://zelmor.link" + query}},
        {"The link has no query part", {"https://zelmor.link", "https://zelmor.link?"}},
        {"The link has no host", {"https://" + query, "https:///" + query}},
        {"The link has a path after the host", {"https://zelmor.link/add" + query, "https://zelmor.link//" + query}},
        {"The link host is not valid", {"https://zel mor.link" + query, "https://user@zelmor.link" + query}},
        {"The link lacks the device name (n)", {with("n"), "https://zelmor.link?&&"}},
        {"The link lacks the serial number (s)", {with("s"), linkOf({kGoldenKey, kGoldenName})}},
        {"The link lacks the hardware revision (h)", {with("h")}},
        {"The link lacks the channel identifier (c)", {with("c")}},
        {"The link lacks the key (k)", {with("k")}},
        {"The device name (n) is not valid hexadecimal", {with("n=426f617"), with("n=426f61zz")}},
        {"The device name (n) is longer than 32 bytes", {with("n=" + std::string(66, 'a'))}},
        {"The serial number (s) must be 16 hexadecimal digits",
         {with("s=000000000001a2b"), with("s=00000000000001a2b"), with("s=000000000000-a2b")}},
        {"The hardware revision (h) must be 2 hexadecimal digits",
         {with("h=4"), with("h=041"), with("h=4g"), linkOf({"h=zz", "s=zz"})}},
        {"The channel identifier (c) is not 16 bytes of base64",
         {with("c=AAAAAAAAAAAAAAAAAAAA"), with("c=AAAAAAAAAAAAAAAAAAAAAAA="),      // 15 and 17 bytes
          with("c=----*-ABEDJUdpi63P4-Pw=="), with("c=----_-ABEDJUdpi63P4-Px=="),  // bad symbol, unused bits set
          with("c=----_-ABEDJUdpi63P4-Pw%41"), with("c=----_-ABEDJUdpi63P4-Pw%3"),
          with("c=----_-ABEDJUdpi63P4-Pw===")}},
        {"The key (k) is not 32 bytes of base64",
         {with("k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=="),    // 31 bytes
          with("k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA")}},  // 33 bytes
        {"The link has an unknown field 'x'", {golden + "&x=1", linkOf({"x=1", "n=zz"})}},
        {"The link has the field 'n' more than once", {golden + "&n=426f6174"}},
        {"The link part 'k' is not of the form field=value", {golden + "&k"}},
        // A key that lost its "k=" is not quoted back.
        {"The link part of 43 bytes is not of the form field=value", {golden + "&" + std::string(43, 'A')}},
    };
    for (auto const& c : cases) {
        for (auto const& link : c.links) {
            auto const result = parseDeviceLink(link);
            EXPECT_FALSE(result.identifier) << link;
            EXPECT_EQ(result.error, c.message) << link;
        }
    }
}

}  // namespace
