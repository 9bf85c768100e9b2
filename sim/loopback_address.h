#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

// The simulator only ever listens on and sends to 127.0.0.0/8, so that nothing
// it does can reach a real network. Addresses are numeric IPv4, host order
// (127.0.0.2 is 0x7F000002).

/// A loopback IPv4 address and port.
struct LoopbackEndpoint {
    uint32_t address = 0;
    uint16_t port = 0;
};

/// The address of "a.b.c.d" when it lies in 127.0.0.0/8; nothing otherwise.
std::optional<uint32_t> parseLoopbackAddress(std::string_view text);

/// "a.b.c.d" or "a.b.c.d:port" (the port then is `defaultPort`); nothing when
/// the address is not loopback or the port is not 1..65535.
std::optional<LoopbackEndpoint> parseLoopbackEndpoint(std::string_view text, uint16_t defaultPort);

bool isLoopback(uint32_t address);

/// "a.b.c.d".
std::string addressText(uint32_t address);

/// "a.b.c.d:port".
std::string endpointText(LoopbackEndpoint const& endpoint);

/// A TCP socket (SO_REUSEADDR, close-on-exec) listening on `endpoint` (port 0:
/// a free one), its bound port in `boundPort`; -1 on failure, with the
/// system's message in `error`.
int listenOn(LoopbackEndpoint const& endpoint, int backlog, uint16_t& boundPort, std::string& error);

}  // namespace sim
