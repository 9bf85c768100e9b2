#include "loopback_address.h"

#include <arpa/inet.h>

#include <charconv>

#include <fmt/core.h>

namespace sim {

bool isLoopback(uint32_t address) { return (address >> 24) == 127; }

std::optional<uint32_t> parseLoopbackAddress(std::string_view text) {
    std::string const copy(text);
    in_addr parsed{};
    if (::inet_pton(AF_INET, copy.c_str(), &parsed) != 1) return std::nullopt;
    uint32_t const address = ntohl(parsed.s_addr);
    if (!isLoopback(address)) return std::nullopt;
    return address;
}

std::optional<LoopbackEndpoint> parseLoopbackEndpoint(std::string_view text, uint16_t defaultPort) {
    size_t const colon = text.find(':');
    std::optional<uint32_t> const address = parseLoopbackAddress(text.substr(0, colon));
    if (!address) return std::nullopt;
    LoopbackEndpoint endpoint{*address, defaultPort};
    if (colon == std::string_view::npos) return endpoint;
    std::string_view const port = text.substr(colon + 1);
    auto const [end, error] = std::from_chars(port.data(), port.data() + port.size(), endpoint.port);
    if (error != std::errc() || end != port.data() + port.size() || endpoint.port == 0) return std::nullopt;
    return endpoint;
}

std::string addressText(uint32_t address) {
    return fmt::format("{}.{}.{}.{}", address >> 24, (address >> 16) & 0xFF, (address >> 8) & 0xFF, address & 0xFF);
}

std::string endpointText(LoopbackEndpoint const& endpoint) {
    return fmt::format("{}:{}", addressText(endpoint.address), endpoint.port);
}

}  // namespace sim
