#include "secret_source.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fmt/core.h>

#include "command_error.h"

std::string secretFromFile(std::string const& path, char const* option) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (!file) throw usageError(fmt::format("{} {}: {}", option, path, std::strerror(errno)));
    std::string line;
    for (int c; (c = std::fgetc(file.get())) != EOF && c != '\n';) line += static_cast<char>(c);
    // A directory opens but cannot be read.
    if (std::ferror(file.get())) throw usageError(fmt::format("{} {}: {}", option, path, std::strerror(errno)));
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) throw usageError(fmt::format("{} {}: the first line is empty", option, path));
    return line;
}

std::string givenSecret(std::string const& text, std::string const& file, char const* fileOption,
                        char const* variable) {
    if (!text.empty()) return text;
    if (!file.empty()) return secretFromFile(file, fileOption);
    char const* const value = variable ? std::getenv(variable) : nullptr;
    return value ? value : "";
}
