#include "device_link.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "base64.h"
#include "hex.h"

namespace {

constexpr std::string_view kScheme = "https://";
constexpr std::string_view kWhitespace = " \t\r\n\v\f";
// Longest piece of a link quoted back to the user: field names are shorter,
// while a longer piece may be a key that lost its "k=", and messages end up
// in terminals and logs.
constexpr size_t kMaxQuotedBytes = 8;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
               return lower(x) == lower(y);
           });
}

bool isHostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == ':' || c == '[' || c == ']';
}

// A piece of the link shown in a message: printable whatever was pasted, and
// only its length when it is long.
std::string quoted(std::string_view text) {
    if (text.size() > kMaxQuotedBytes) return fmt::format("of {} bytes", text.size());
    std::string out = "'";
    for (char c : text) out += (c >= 0x20 && c < 0x7F) ? c : '?';
    return out + "'";
}

// Mail programs and URL tools rewrite base64: they turn it into the standard
// alphabet, drop the padding or percent-encode it. All of these are read back
// as the URL-safe text they came from.
std::optional<std::vector<uint8_t>> decodeLinkBase64(std::string_view value) {
    struct Escape {
        std::string_view code;
        char symbol;
    };
    static constexpr Escape kEscapes[] = {{"2B", '-'}, {"2F", '_'}, {"3D", '='}};
    std::string text;
    text.reserve(value.size() + 3);
    for (size_t i = 0; i < value.size(); ++i) {
        char const c = value[i];
        if (c == '%') {
            std::string_view const code = value.substr(i + 1, 2);
            auto const escape = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                             [&](Escape const& e) { return equalsIgnoringCase(code, e.code); });
            if (escape == std::end(kEscapes)) return std::nullopt;
            text += escape->symbol;
            i += 2;
        } else {
            text += c == '+' ? '-' : c == '/' ? '_' : c;
        }
    }
    while (text.size() % 4 != 0) text += '=';
    return base64Decode(text, Base64Mode::UrlSafe);
}

char const* readName(std::string_view value, Zelmor::DeviceIdentifier& id) {
    auto const bytes = hexDecode(value);
    if (!bytes) return "The device name (n) is not valid hexadecimal";
    if (bytes->size() > kDeviceLinkMaxNameBytes) return "The device name (n) is longer than 32 bytes";
    id.name.assign(bytes->begin(), bytes->end());
    return nullptr;
}

char const* readSerial(std::string_view value, Zelmor::DeviceIdentifier& id) {
    auto const bytes = value.size() == 16 ? hexDecode(value) : std::nullopt;
    if (!bytes) return "The serial number (s) must be 16 hexadecimal digits";
    id.serial = 0;
    for (uint8_t b : *bytes) id.serial = id.serial << 8 | b;
    return nullptr;
}

char const* readRevision(std::string_view value, Zelmor::DeviceIdentifier& id) {
    auto const bytes = value.size() == 2 ? hexDecode(value) : std::nullopt;
    if (!bytes) return "The hardware revision (h) must be 2 hexadecimal digits";
    id.hardwareRevision = (*bytes)[0];
    return nullptr;
}

char const* readChannelId(std::string_view value, Zelmor::DeviceIdentifier& id) {
    auto const bytes = decodeLinkBase64(value);
    if (!bytes || bytes->size() != id.channelId.size()) return "The channel identifier (c) is not 16 bytes of base64";
    std::copy(bytes->begin(), bytes->end(), id.channelId.begin());
    return nullptr;
}

char const* readKey(std::string_view value, Zelmor::DeviceIdentifier& id) {
    auto const bytes = decodeLinkBase64(value);
    if (!bytes || bytes->size() != id.key.size()) return "The key (k) is not 32 bytes of base64";
    std::copy(bytes->begin(), bytes->end(), id.key.begin());
    return nullptr;
}

struct FieldRow {
    std::string_view name;
    char const* (*read)(std::string_view value, Zelmor::DeviceIdentifier& id);
    char const* missing;
};

constexpr FieldRow kFields[] = {
    {"n", readName, "The link lacks the device name (n)"},
    {"s", readSerial, "The link lacks the serial number (s)"},
    {"h", readRevision, "The link lacks the hardware revision (h)"},
    {"c", readChannelId, "The link lacks the channel identifier (c)"},
    {"k", readKey, "The link lacks the key (k)"},
};
constexpr size_t kFieldCount = std::size(kFields);

DeviceLinkResult failure(std::string message) { return {std::nullopt, std::move(message)}; }

}  // namespace

std::string makeDeviceLink(Zelmor::DeviceIdentifier const& id) {
    auto const* name = reinterpret_cast<uint8_t const*>(id.name.data());
    return fmt::format("{}{}?n={}&s={:016x}&h={:02x}&c={}&k={}", kScheme, kDeviceLinkHost,
                       hexEncode(name, std::min(id.name.size(), kDeviceLinkMaxNameBytes)), id.serial,
                       unsigned{id.hardwareRevision},
                       base64Encode(id.channelId.data(), id.channelId.size(), Base64Mode::UrlSafe),
                       base64Encode(id.key.data(), id.key.size(), Base64Mode::UrlSafe));
}

DeviceLinkResult parseDeviceLink(std::string_view text) {
    size_t const first = text.find_first_not_of(kWhitespace);
    text = first == std::string_view::npos ? std::string_view{}
                                           : text.substr(first, text.find_last_not_of(kWhitespace) - first + 1);

    if (!equalsIgnoringCase(text.substr(0, kScheme.size()), kScheme))
        return failure("The link does not start with https://");
    text.remove_prefix(kScheme.size());

    size_t const question = text.find('?');
    if (question == std::string_view::npos || question + 1 == text.size()) return failure("The link has no query part");
    std::string_view host = text.substr(0, question);
    if (host.ends_with('/')) host.remove_suffix(1);
    if (host.empty()) return failure("The link has no host");
    if (host.find('/') != std::string_view::npos) return failure("The link has a path after the host");
    if (!std::all_of(host.begin(), host.end(), isHostCharacter)) return failure("The link host is not valid");

    Zelmor::DeviceIdentifier id;
    bool seen[kFieldCount] = {};
    std::string_view query = text.substr(question + 1);
    while (!query.empty()) {
        size_t const end = std::min(query.find('&'), query.size());
        std::string_view const part = query.substr(0, end);
        query.remove_prefix(std::min(end + 1, query.size()));
        // An empty part ("&&" or a trailing "&") says nothing; skip it.
        if (part.empty()) continue;

        size_t const equals = part.find('=');
        if (equals == std::string_view::npos)
            return failure("The link part " + quoted(part) + " is not of the form field=value");
        std::string_view const name = part.substr(0, equals);
        auto const row =
            std::find_if(std::begin(kFields), std::end(kFields), [&](FieldRow const& f) { return f.name == name; });
        if (row == std::end(kFields)) return failure("The link has an unknown field " + quoted(name));
        size_t const index = static_cast<size_t>(row - std::begin(kFields));
        if (seen[index]) return failure("The link has the field " + quoted(name) + " more than once");
        seen[index] = true;
        if (char const* error = row->read(part.substr(equals + 1), id)) return failure(error);
    }
    for (size_t i = 0; i < kFieldCount; ++i)
        if (!seen[i]) return failure(kFields[i].missing);
    return {id, {}};
}

Zelmor::DeviceIdentifier pairedDevice(Zelmor::DeviceInfo const& info, Zelmor::WifiAccessKey const& key) {
    Zelmor::DeviceIdentifier id;
    id.name = info.name;
    id.serial = info.serial;
    id.hardwareRevision = info.hardwareRevision;
    id.channelId = key.keyId;
    id.key = key.key;
    return id;
}
