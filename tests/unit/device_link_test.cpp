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

TEST(DeviceLinkTest, MakesTheGoldenLink) {
    EXPECT_EQ(kDeviceLinkHost, "zelmor.link");
    EXPECT_EQ(makeDeviceLink(goldenIdentifier()), kGoldenLink);
}

TEST(DeviceLinkTest, ParsesTheGoldenLink) {
    DeviceLinkResult const result = parseDeviceLink(kGoldenLink);
    ASSERT_TRUE(result.identifier) << result.error;
    EXPECT_EQ(*result.identifier, goldenIdentifier());
    EXPECT_EQ(result.error, "");
}

TEST(DeviceLinkTest, WritesSerialAndRevisionZeroPadded) {
    Identifier id;
    id.serial = 0x1A2B;
    id.hardwareRevision = 0x05;
    std::string const link = makeDeviceLink(id);
    EXPECT_EQ(fieldOf(link, "s"), "0000000000001a2b");
    EXPECT_EQ(fieldOf(link, "h"), "05");
    id.serial = 0xFEDCBA9876543210;
    EXPECT_EQ(fieldOf(makeDeviceLink(id), "s"), "fedcba9876543210");
}

TEST(DeviceLinkTest, ZeroKeysArePaddedBase64) {
    std::string const link = makeDeviceLink(Identifier{});
    EXPECT_EQ(link,
              "https://zelmor.link?n=&s=0000000000000000&h=00&c=AAAAAAAAAAAAAAAAAAAAAA==&"
              "k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=");
}

TEST(DeviceLinkTest, LongNameIsCutToItsFirst32Bytes) {
    Identifier id = goldenIdentifier();
    id.name = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789wxyz";
    ASSERT_EQ(id.name.size(), 40u);
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

TEST(DeviceLinkTest, LocalAddressesAreNotCarried) {
    Identifier id = goldenIdentifier();
    id.bluetoothAddress = 0xC0FFEE123456;
    id.ipAddress = 0x0100007F;
    EXPECT_EQ(makeDeviceLink(id), kGoldenLink);
    auto const result = parseDeviceLink(kGoldenLink);
    ASSERT_TRUE(result.identifier);
    EXPECT_EQ(result.identifier->bluetoothAddress, 0u);
    EXPECT_EQ(result.identifier->ipAddress, 0u);
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

TEST(DeviceLinkTest, EmptyNameIsANameNotAMissingField) {
    auto const result = parseDeviceLink(linkOf({"n=", kGoldenSerial, kGoldenRevision, kGoldenChannel, kGoldenKey}));
    ASSERT_TRUE(result.identifier) << result.error;
    EXPECT_EQ(result.identifier->name, "");
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
    struct Case {
        std::string link;
        std::string message;
    };
    std::string const noScheme = "The link does not start with https://";
    std::string const badName = "The device name (n) is not valid hexadecimal";
    std::string const badSerial = "The serial number (s) must be 16 hexadecimal digits";
    std::string const badRevision = "The hardware revision (h) must be 2 hexadecimal digits";
    std::string const badChannel = "The channel identifier (c) is not 16 bytes of base64";
    std::string const badKey = "The key (k) is not 32 bytes of base64";
    Case const cases[] = {
        {"", noScheme},
        {" \n\t ", noScheme},
        {"http://zelmor.link" + query, noScheme},
        {"zelmor.link" + query, noScheme},
        {"https:/zelmor.link" + query, noScheme},
        {"https://zelmor.link", "The link has no query part"},
        {"https://zelmor.link/", "The link has no query part"},
        {"https://zelmor.link?", "The link has no query part"},
        {"https://" + query, "The link has no host"},
        {"https:///" + query, "The link has no host"},
        {"https://zelmor.link/add" + query, "The link has a path after the host"},
        {"https://zelmor.link//" + query, "The link has a path after the host"},
        {"https://zel mor.link" + query, "The link host is not valid"},
        {"https://user@zelmor.link" + query, "The link host is not valid"},
        {without(kGoldenName), "The link lacks the device name (n)"},
        {without(kGoldenSerial), "The link lacks the serial number (s)"},
        {without(kGoldenRevision), "The link lacks the hardware revision (h)"},
        {without(kGoldenChannel), "The link lacks the channel identifier (c)"},
        {without(kGoldenKey), "The link lacks the key (k)"},
        {"https://zelmor.link?&&", "The link lacks the device name (n)"},
        {with("n=426f617"), badName},
        {with("n=426f61zz"), badName},
        {with("n=0x426f6174"), badName},
        {with("n=" + std::string(66, 'a')), "The device name (n) is longer than 32 bytes"},
        {with("s=000000000001a2b"), badSerial},
        {with("s=00000000000001a2b"), badSerial},
        {with("s=000000000000-a2b"), badSerial},
        {with("s=1a2b"), badSerial},
        {with("s="), badSerial},
        {with("h=4"), badRevision},
        {with("h=041"), badRevision},
        {with("h=4g"), badRevision},
        {with("h="), badRevision},
        {with("c="), badChannel},
        {with("c=AAAAAAAAAAAAAAAAAAAA"), badChannel},      // 15 bytes
        {with("c=AAAAAAAAAAAAAAAAAAAAAAA="), badChannel},  // 17 bytes
        {with("c=----*-ABEDJUdpi63P4-Pw=="), badChannel},
        {with("c=----_-ABEDJUdpi63P4-Px=="), badChannel},  // unused bits set
        {with("c=----_-ABEDJUdpi63P4-Pw%41"), badChannel},
        {with("c=----_-ABEDJUdpi63P4-Pw%3"), badChannel},
        {with("c=----_-ABEDJUdpi63P4-Pw==="), badChannel},
        {with("k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=="), badKey},  // 31 bytes
        {with("k=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"), badKey},  // 33 bytes
        {with("k=4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8=#"), badKey},
        {with("k= 4OHi4-Tl5ufo6err7O3u7_Dx8vP09fb3-Pn6-_z9_v8="), badKey},
        {golden + "&x=1", "The link has an unknown field 'x'"},
        {golden + "&N=426f6174", "The link has an unknown field 'N'"},
        {golden + "&=1", "The link has an unknown field ''"},
        {golden + "&abcdefghijklmnopqrstuvwxyz=1", "The link has an unknown field 'abcdefghijklmnop...'"},
        {golden + "&\x01\xff=1", "The link has an unknown field '?\?'"},
        {golden + "&n=426f6174", "The link has the field 'n' more than once"},
        {golden + "&k=AAAA", "The link has the field 'k' more than once"},
        {golden + "&k", "The link part 'k' is not of the form field=value"},
        {linkOf({"n", kGoldenSerial}), "The link part 'n' is not of the form field=value"},
    };
    for (auto const& c : cases) {
        auto const result = parseDeviceLink(c.link);
        EXPECT_FALSE(result.identifier) << c.link;
        EXPECT_EQ(result.error, c.message) << c.link;
    }
}

TEST(DeviceLinkTest, ReportsTheFirstProblemInTextOrder) {
    EXPECT_EQ(parseDeviceLink(linkOf({"h=zz", "s=zz"})).error,
              "The hardware revision (h) must be 2 hexadecimal digits");
    EXPECT_EQ(parseDeviceLink(linkOf({"x=1", "n=zz"})).error, "The link has an unknown field 'x'");
    EXPECT_EQ(parseDeviceLink(linkOf({kGoldenKey, kGoldenName})).error, "The link lacks the serial number (s)");
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
