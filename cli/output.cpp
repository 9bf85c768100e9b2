#include "output.h"

#include <arpa/inet.h>

#include <cstdio>

#include <fmt/core.h>

#include "float_json.h"

void Output::emit(Json const& result) const {
    // Names come from devices: bytes that are not UTF-8 are replaced rather
    // than ending the program. Measurements print as the device's floats.
    std::string const text = jsonLine(result);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void Output::line(std::string_view text) const {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string serialText(uint64_t serial) { return fmt::format("{:016X}", serial); }

std::string firmwareText(uint16_t version) { return fmt::format("{:X}.{:02X}", version >> 8, version & 0xFF); }

std::string revisionText(uint8_t revision) { return fmt::format("0x{:02x}", revision); }

std::string ipText(uint32_t networkOrder) {
    char text[INET_ADDRSTRLEN] = {};
    in_addr address{};
    address.s_addr = networkOrder;
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}
