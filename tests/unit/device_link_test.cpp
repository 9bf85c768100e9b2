#include <gtest/gtest.h>

#include <cstddef>
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
    for (size_t i = 0; i < fields.size(); ++i) {
        if (i > 0) link += '&';
        link += fields[i];
    }
    return link;
}

std::string fieldOf(std::string_view link, std::string_view field) {
    std::string const key = std::string(field) + "=";
    size_t const at = link.find(key, link.find('?'));
    return std::string(link.substr(at + key.size(), link.find('&', at) - at - key.size()));
}

TEST(DeviceLinkTest, GoldenLinkBothWaysWithoutLocalAddresses) {
    Identifier id = goldenIdentifier();
    id.bluetoothAddress = 0xC0FFEE123456;
    id.ipAddress = 0x0100007F;
    EXPECT_EQ(makeDeviceLink(id), kGoldenLink);
    DeviceLinkResult const result = parseDeviceLink(kGoldenLink);
    ASSERT_TRUE(result.identifier) << result.error;
    EXPECT_EQ(*result.identifier, goldenIdentifier());
    EXPECT_EQ(result.error, "");
}

TEST(DeviceLinkTest, FieldsKeepTheirWidthAndAnEmptyNameIsAName) {
    std::string const zero =
        "https://zelmor.link?n=&s=0000000000000000&h=00&c=AAAAAAAAAAAAAAAAAAAAAA==&"
        "k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=";
    EXPECT_EQ(makeDeviceLink(Identifier{}), zero);
    auto const result = parseDeviceLink(zero);
    ASSERT_TRUE(result.identifier) << result.error;
    EXPECT_EQ(*result.identifier, Identifier{});

    Identifier id;
    id.serial = 0xFEDCBA9876543210;
    id.hardwareRevision = 0x05;
    std::string const link = makeDeviceLink(id);
    EXPECT_EQ(fieldOf(link, "s"), "fedcba9876543210");
    EXPECT_EQ(fieldOf(link, "h"), "05");
}

TEST(DeviceLinkTest, LongNameIsCutToItsFirst32Bytes) {
    Identifier id = goldenIdentifier();
    id.name = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789wxyz";
    std::string const link = makeDeviceLink(id);
    EXPECT_EQ(fieldOf(link, "n"), "4142434445464748494a4b4c4d4e4f505152535455565758595a303132333435");
    auto const result = parseDeviceLink(link);
    ASSERT_TRUE(result.identifier) << result.error;
    EXPECT_EQ(result.identifier->name, "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345");
}

TEST(DeviceLinkTest, RoundTripsNamesUpTo32BytesOfAnyValue) {
    uint64_t state = 0x9E3779B97F4A7C15;
    auto const next = [&] {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    for (size_t length = 0; length <= kDeviceLinkMaxNameBytes; ++length) {
        Identifier id;
        for (size_t i = 0; i < length; ++i) id.name += static_cast<char>(next());
        if (length > 0) id.name[0] = '\0';  // zero bytes are name bytes like any other
        id.serial = next();
        id.hardwareRevision = static_cast<uint8_t>(next());
        for (auto& b : id.channelId) b = static_cast<uint8_t>(next());
        for (auto& b : id.key) b = static_cast<uint8_t>(next());
        auto const result = parseDeviceLink(makeDeviceLink(id));
        ASSERT_TRUE(result.identifier) << "name length " << length << ": " << result.error;
        EXPECT_EQ(*result.identifier, id) << "name length " << length;
    }
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
        linkOf({kGoldenName, kGoldenSerial, kGoldenRevision,
                "c=++++/+ABEDJUdpi63P4+Pw==", "k=4OHi4+Tl5ufo6err7O3u7/Dx8vP09fb3+Pn6+/z9/v8="}),
        linkOf({kGoldenName, kGoldenSerial, kGoldenRevision, "c=----_-ABEDJUdpi63P4-Pw",
                "k=4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8"}),
        linkOf({kGoldenName, kGoldenSerial, kGoldenRevision, "c=%2B%2b--%2F-ABEDJUdpi63P4-Pw%3D%3d",
                "k=4OHi4-Tl5ufo6err7O3u7%2fDx8vP09fb3-Pn6-_z9_v8%3D"}),
        linkOf({kGoldenName, kGoldenSerial, kGoldenRevision,
                "c=-+-+/-ABEDJUdpi63P4+Pw=", "k=4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8="}),
    };
    for (auto const& link : accepted) {
        auto const result = parseDeviceLink(link);
        ASSERT_TRUE(result.identifier) << link << ": " << result.error;
        EXPECT_EQ(*result.identifier, goldenIdentifier()) << link;
    }
}

TEST(DeviceLinkTest, RejectsMalformedLinksSayingWhatIsWrong) {
    std::string const golden(kGoldenLink);
    std::string const query = golden.substr(golden.find('?'));
    auto const without = [](std::string_view dropped) {
        std::vector<std::string_view> fields;
        for (auto f : kGoldenFields)
            if (f != dropped) fields.push_back(f);
        return linkOf(fields);
    };
    // The golden fields with the one of the same name replaced.
    auto const with = [](std::string_view replacement) {
        std::vector<std::string_view> fields;
        for (auto f : kGoldenFields) fields.push_back(f[0] == replacement[0] ? replacement : f);
        return linkOf(fields);
    };
    // Each message with the links that must draw it; when a link has several
    // problems, the first in text order is reported.
    struct Case {
        std::string message;
        std::vector<std::string> links;
    };
    Case const cases[] = {
        {"The link does not start with https://",
         {"", " \n\t ", "http://zelmor.link" + query, "zelmor.link" + query, "https:/zelmor.link" + query}},
        {"The link has no query part", {"https://zelmor.link", "https://zelmor.link/", "https://zelmor.link?"}},
        {"The link has no host", {"https://" + query, "https:///" + query}},
        {"The link has a path after the host", {"https://zelmor.link/add" + query, "https://zelmor.link//" + query}},
        {"The link host is not valid", {"https://zel mor.link" + query, "https://user@zelmor.link" + query}},
        {"The link lacks the device name (n)", {without(kGoldenName), "https://zelmor.link?&&"}},
        {"The link lacks the serial number (s)", {without(kGoldenSerial), linkOf({kGoldenKey, kGoldenName})}},
        {"The link lacks the hardware revision (h)", {without(kGoldenRevision)}},
        {"The link lacks the channel identifier (c)", {without(kGoldenChannel)}},
        {"The link lacks the key (k)", {without(kGoldenKey)}},
        {"The device name (n) is not valid hexadecimal", {with("n=426f617"), with("n=426f61zz"), with("n=0x426f6174")}},
        {"The device name (n) is longer than 32 bytes", {with("n=" + std::string(66, 'a'))}},
        {"The serial number (s) must be 16 hexadecimal digits",
         {with("s=000000000001a2b"), with("s=00000000000001a2b"), with("s=000000000000-a2b"), with("s=1a2b"),
          with("s=")}},
        {"The hardware revision (h) must be 2 hexadecimal digits",
         {with("h=4"), with("h=041"), with("h=4g"), with("h="), linkOf({"h=zz", "s=zz"})}},
        {"The channel identifier (c) is not 16 bytes of base64",
         {with("c="), with("c=AAAAAAAAAAAAAAAAAAAA"), with("c=AAAAAAAAAAAAAAAAAAAAAAA="),  // 15 and 17 bytes
          with("c=----*-ABEDJUdpi63P4-Pw=="), with("c=----_-ABEDJUdpi63P4-Px=="),  // bad symbol, unused bits set
          with("c=----_-ABEDJUdpi63P4-Pw%41"), with("c=----_-ABEDJUdpi63P4-Pw%3"),
          with("c=----_-ABEDJUdpi63P4-Pw===")}},
        {"The key (k) is not 32 bytes of base64",
         {with("k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=="),  // 31 bytes
          with("k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"),  // 33 bytes
          with("k=4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8=#"),
          with("k= 4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8=")}},
        {"The link has an unknown field 'x'", {golden + "&x=1", linkOf({"x=1", "n=zz"})}},
        {"The link has an unknown field 'N'", {golden + "&N=426f6174"}},
        {"The link has an unknown field ''", {golden + "&=1"}},
        {"The link has an unknown field 'abcdefghijklmnop...'", {golden + "&abcdefghijklmnopqrstuvwxyz=1"}},
        {"The link has an unknown field '?\?'", {golden + "&\x01\xff=1"}},
        {"The link has the field 'n' more than once", {golden + "&n=426f6174"}},
        {"The link has the field 'k' more than once", {golden + "&k=AAAA"}},
        {"The link part 'k' is not of the form field=value", {golden + "&k"}},
        {"The link part 'n' is not of the form field=value", {linkOf({"n", kGoldenSerial})}},
    };
    for (auto const& c : cases) {
        for (auto const& link : c.links) {
            auto const result = parseDeviceLink(link);
            EXPECT_FALSE(result.identifier) << link;
            EXPECT_EQ(result.error, c.message) << link;
        }
    }
}

TEST(DeviceLinkTest, SurvivesEveryPrefixOfAValidLink) {
    std::string const golden(kGoldenLink);
    for (size_t length = 0; length < golden.size(); ++length) {
        // An exactly sized heap copy, so a read past the end is caught by the sanitizers.
        std::vector<char> const prefix(golden.begin(), golden.begin() + static_cast<std::ptrdiff_t>(length));
        auto const result = parseDeviceLink(std::string_view(prefix.data(), prefix.size()));
        // Only the last "=" may go: missing padding is tolerated.
        if (result.identifier)
            EXPECT_EQ(*result.identifier, goldenIdentifier()) << length;
        else
            EXPECT_FALSE(result.error.empty()) << length;
    }
}

}  // namespace
