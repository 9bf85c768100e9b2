#include "loopback_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

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

int listenOn(LoopbackEndpoint const& endpoint, int backlog, uint16_t& boundPort, std::string& error) {
    int const fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = std::strerror(errno);
        return -1;
    }
    int const one = 1;
    sockaddr_in bound{};
    bound.sin_family = AF_INET;
    bound.sin_port = htons(endpoint.port);
    bound.sin_addr.s_addr = htonl(endpoint.address);
    socklen_t boundLength = sizeof bound;
    if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
        ::bind(fd, reinterpret_cast<sockaddr const*>(&bound), sizeof bound) != 0 || ::listen(fd, backlog) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &boundLength) != 0) {
        error = std::strerror(errno);
        ::close(fd);
        return -1;
    }
    boundPort = ntohs(bound.sin_port);
    return fd;
}

}  // namespace sim
