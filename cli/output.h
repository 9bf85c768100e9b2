#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

/// JSON objects keep their keys in the order a command adds them.
using Json = nlohmann::ordered_json;

/// Where a command's results go: text lines for people, or one JSON object
/// per result and line for scripts. Standard output only; messages about
/// failures go to standard error.
class Output {
public:
    explicit Output(bool json = false) : json_(json) {}

    bool json() const { return json_; }
    void setJson(bool json) { json_ = json; }

    /// One result as a single line of JSON.
    void emit(Json const& result) const;
    /// One line of text (a newline is added).
    void line(std::string_view text) const;
    /// One result that has both forms: `json` in JSON mode, else `text`.
    void result(Json const& json, std::string_view text) const { json_ ? emit(json) : line(text); }

private:
    bool json_;
};

/// 16 upper-case hex digits: how a serial number is shown everywhere.
std::string serialText(uint64_t serial);
/// "1.32" for 0x0132.
std::string firmwareText(uint16_t version);
/// "0x41".
std::string revisionText(uint8_t revision);
/// "a.b.c.d" of an address in network byte order.
std::string ipText(uint32_t networkOrder);
