#include "firmware_server.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>

#include <fmt/core.h>

#include "firmware_location.h"

namespace {

bool isHostNameCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-'; }

bool isIpv6Character(char c) { return std::isxdigit(static_cast<unsigned char>(c)) || c == ':' || c == '.'; }

FirmwareServerSetting failure(std::string text) { return {std::nullopt, std::move(text)}; }

}  // namespace

FirmwareServerSetting parseFirmwareServer(std::string_view text) {
    if (text.find("://") != std::string_view::npos || text.find('/') != std::string_view::npos)
        return failure(fmt::format("\"{}\" is not HOST[:PORT]: give the host without scheme or path", text));
    FirmwareServerAddress server;
    std::string_view portText;
    if (text.starts_with('[')) {
        size_t const close = text.find(']');
        if (close == std::string_view::npos)
            return failure(fmt::format("\"{}\" is not HOST[:PORT]: the IPv6 address lacks its ']'", text));
        server.host = text.substr(1, close - 1);
        std::string_view const rest = text.substr(close + 1);
        if (!rest.empty() && !rest.starts_with(':'))
            return failure(fmt::format("\"{}\" is not HOST[:PORT]: only \":PORT\" may follow the address", text));
        if (server.host.empty() || !std::all_of(server.host.begin(), server.host.end(), isIpv6Character))
            return failure(fmt::format("\"{}\" is not HOST[:PORT]: not an IPv6 address in brackets", text));
        if (!rest.empty()) portText = rest.substr(1);
        if (!rest.empty() && portText.empty())
            return failure(fmt::format("\"{}\" is not HOST[:PORT]: the port is missing after ':'", text));
    } else {
        size_t const colon = text.find(':');
        server.host = text.substr(0, colon);
        if (colon != std::string_view::npos) {
            portText = text.substr(colon + 1);
            if (portText.empty())
                return failure(fmt::format("\"{}\" is not HOST[:PORT]: the port is missing after ':'", text));
        }
        if (server.host.empty()) return failure(fmt::format("\"{}\" is not HOST[:PORT]: the host is missing", text));
        if (!std::all_of(server.host.begin(), server.host.end(), isHostNameCharacter))
            return failure(
                fmt::format("\"{}\" is not HOST[:PORT]: a host has only letters, digits, '.' and '-'", text));
    }
    if (!portText.empty()) {
        unsigned port = 0;
        auto const [end, error] = std::from_chars(portText.data(), portText.data() + portText.size(), port);
        if (error != std::errc() || end != portText.data() + portText.size() || port < 1 || port > 65535)
            return failure(fmt::format("\"{}\": the port must be a number from 1 to 65535", text));
        server.port = static_cast<uint16_t>(port);
    }
    return {std::move(server), {}};
}

FirmwareServerSetting firmwareServerSetting(std::string_view option) {
    if (!option.empty()) {
        FirmwareServerSetting setting = parseFirmwareServer(option);
        if (!setting.error.empty()) setting.error = "--firmware-server " + setting.error;
        return setting;
    }
    char const* const variable = std::getenv(kFirmwareServerVariable);
    if (variable == nullptr || *variable == '\0') return {};
    FirmwareServerSetting setting = parseFirmwareServer(variable);
    if (!setting.error.empty()) setting.error = fmt::format("{} {}", kFirmwareServerVariable, setting.error);
    return setting;
}

std::string firmwareFileUrl(std::optional<FirmwareServerAddress> const& server, uint8_t hardwareRevision,
                            uint16_t currentFirmwareVersion) {
    if (!server) return {};
    std::string const path = firmwareFilePath(hardwareRevision, currentFirmwareVersion);
    if (path.empty()) return {};
    bool const v6 = server->host.find(':') != std::string::npos;
    std::string const host = v6 ? "[" + server->host + "]" : server->host;
    if (server->port == kFirmwareServerDefaultPort) return fmt::format("http://{}{}", host, path);
    return fmt::format("http://{}:{}{}", host, server->port, path);
}
