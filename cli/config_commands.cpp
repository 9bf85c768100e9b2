// The device configuration: read as a hex dump or as JSON, written from a JSON
// file (only the fields it names change) or from a hex image, and compared.
#include "config_commands.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <fmt/core.h>

#include "argument_values.h"
#include "command_error.h"
#include "config_json.h"
#include "config_validation.h"
#include "device_session.h"
#include "hex.h"

namespace {

constexpr size_t kDumpWidth = 16;

struct ConfigOptions {
    bool hex = false;
    bool json = false;
    std::vector<std::string> files;
};

std::string hexDump(ZelmorConfig::Image const& image) {
    std::string dump;
    for (size_t offset = 0; offset < image.size(); offset += kDumpWidth) {
        dump += fmt::format("{}{:04x} ", offset == 0 ? "" : "\n", offset);
        for (size_t i = offset; i < std::min(offset + kDumpWidth, image.size()); ++i)
            dump += fmt::format(" {:02x}", image[i]);
    }
    return dump;
}

void configGet(CommandContext& context, ConfigOptions const& options) {
    DeviceSession session(context.target);
    ZelmorConfig const config = session.get(&Zelmor::requestGetConfig);
    auto const& image = config.image();
    std::string const hex = hexEncode(image.data(), image.size());
    if (options.json) {
        // The configuration itself, a file for 'config set': one field a line,
        // or all on one line when every result is asked for as one line.
        ConfigJson const json = configToJson(config);
        if (context.output.json())
            context.output.emit(json);
        else
            context.output.line(json.dump(2, ' ', false, Json::error_handler_t::replace));
    } else if (context.output.json()) {
        context.output.emit(Json{{"config", hex}, {"fields", configToJson(config)}});
    } else if (options.hex) {
        context.output.line(hex);
    } else {
        context.output.line(hexDump(image));
    }
}

/// A configuration put together from a base and a file, and the fields the
/// file names. A hex file is a whole image and names every field.
struct ConfigFile {
    ZelmorConfig config;
    std::set<std::string, std::less<>> named;
};

std::string readText(std::string const& path) {
    std::ifstream in(path);
    if (!in) throw usageError(fmt::format("{}: cannot be read", path));
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool looksLikeJson(std::string const& text) {
    auto const first =
        std::find_if(text.begin(), text.end(), [](char c) { return !std::isspace(static_cast<unsigned char>(c)); });
    return first != text.end() && *first == '{';
}

ZelmorConfig::Image readHexImage(std::string const& text, std::string const& path) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
                 [](char c) { return !std::isspace(static_cast<unsigned char>(c)); });
    std::vector<uint8_t> const bytes = parseHexBytes(digits, ZelmorConfig::kSize, path.c_str());
    ZelmorConfig::Image image{};
    std::copy(bytes.begin(), bytes.end(), image.begin());
    return image;
}

ConfigJson readJson(std::string const& text, std::string const& path) {
    try {
        return ConfigJson::parse(text);
    } catch (ConfigJson::parse_error const& error) {
        throw usageError(fmt::format("{}: not valid JSON: {}", path, error.what()));
    }
}

/// A file as read: a JSON object of fields, or else a hex image.
struct LoadedFile {
    std::optional<ConfigJson> json;
    ZelmorConfig::Image image{};
};

/// Reads the file and checks each field it names on its own before a link to
/// the device is made, so that a wrong file fails at once with status 2. A
/// file is JSON when its first character is '{'.

LoadedFile loadFile(std::string const& path) {
    std::string const text = readText(path);
    if (!looksLikeJson(text)) return {std::nullopt, readHexImage(text, path)};
    LoadedFile file{readJson(text, path), {}};
    ZelmorConfig scratch;
    if (auto problem = applyConfigJson(scratch, *file.json)) throw usageError(fmt::format("{}: {}", path, *problem));
    return file;
}

// The file was checked when it was read: applying it cannot fail.
ConfigFile onTopOf(ZelmorConfig const& base, LoadedFile const& file) {
    ConfigFile result{base, {}};
    if (!file.json) {
        result.config.image() = file.image;
        for (ConfigField const& field : kConfigFields) result.named.emplace(field.name);
        return result;
    }
    applyConfigJson(result.config, *file.json);
    for (auto const& item : file.json->items()) result.named.insert(item.key());
    return result;
}

void configSet(CommandContext& context, ConfigOptions const& options) {
    LoadedFile const file = loadFile(options.files.front());
    DeviceSession session(context.target);
    ZelmorConfig const config = onTopOf(session.get(&Zelmor::requestGetConfig), file).config;
    if (auto problem = configProblem(config)) throw CommandError(*problem, kExitFailure);
    session.run([&](Zelmor::DoneCallback done) { session.device().requestSetConfig(config, done); });
    context.output.result(Json{{"ok", true}}, "Configuration written.");
}

void configDiffCommand(CommandContext& context, ConfigOptions const& options) {
    std::vector<LoadedFile> files;
    for (std::string const& path : options.files) files.push_back(loadFile(path));
    ConfigFile before;
    ConfigFile after;
    if (files.size() == 1) {
        DeviceSession session(context.target);
        before.config = session.get(&Zelmor::requestGetConfig);
        after = onTopOf(before.config, files[0]);
        before.named = after.named;
    } else {
        before = onTopOf(ZelmorConfig(), files[0]);
        after = onTopOf(ZelmorConfig(), files[1]);
    }
    size_t count = 0;
    for (ConfigDifference const& difference : configDiff(before.config, after.config)) {
        if (!before.named.contains(difference.name) || !after.named.contains(difference.name)) continue;
        ++count;
        auto const text = [](ConfigJson const& value) {
            return value.dump(-1, ' ', false, ConfigJson::error_handler_t::replace);
        };
        context.output.result(
            Json{{"field", difference.name}, {"from", difference.before}, {"to", difference.after}},
            fmt::format("{}: {} -> {}", difference.name, text(difference.before), text(difference.after)));
    }
    // Like diff(1): status 1 when the two differ.
    if (count > 0)
        throw CommandError(fmt::format("{} field{} differ{}", count, count == 1 ? "" : "s", count == 1 ? "s" : ""),
                           kExitFailure);
}

}  // namespace

void addConfigCommands(CLI::App& app, CommandContext& context) {
    auto options = std::make_shared<ConfigOptions>();

    CLI::App* config = addGroup(app, "config", "Read, write or compare the device configuration");
    CLI::App* get = addCommand(*config, "get", "Print the configuration: a hex dump, or with --json every field",
                               context, [&context, options] { configGet(context, *options); });
    get->add_flag("--hex", options->hex, "Print the 208 hex digits of the image on one line");
    get->add_flag("--json", options->json,
                  "Print every field by name in its unit, one a line: a file 'config set' reads back");

    addCommand(*config, "set",
               "Write the fields a JSON file names (the others stay as they are), or a whole image of 208 hex digits; "
               "the result is checked as the device window checks it",
               context, [&context, options] { configSet(context, *options); })
        ->add_option("FILE", options->files, "JSON object of fields, or the image in hex (whitespace is ignored)")
        ->required()
        ->expected(1);

    addCommand(*config, "diff",
               "Compare the device with a file, or two files, field by field (status 1 when they differ)", context,
               [&context, options] { configDiffCommand(context, *options); })
        ->add_option("FILE", options->files,
                     "One file: the device against it; two: the first against the second. Only the fields both "
                     "sides name are compared")
        ->required()
        ->expected(1, 2);
}
