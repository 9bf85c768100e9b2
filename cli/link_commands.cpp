// Device links: pair (make the link of a connected device), link decode and
// link encode (no device needed). A link's key reaches the device: only the
// commands that make a link print it, and decode when asked to.
#include <algorithm>
#include <memory>

#include <fmt/core.h>

#include "argument_values.h"
#include "command_context.h"
#include "command_error.h"
#include "device_link.h"
#include "device_session.h"
#include "hardware_revision.h"
#include "hex.h"

namespace {

struct EncodeOptions {
    std::string name;
    std::string serial;
    std::string revision;
    std::string channel;
    std::string key;
};

struct DecodeOptions {
    std::string url;
    bool showKey = false;
};

enum class KeyShown { No, Yes };

// The channel identifier tells links apart as well as the key does, and
// opens nothing.
Json identifierJson(Zelmor::DeviceIdentifier const& id, KeyShown key) {
    Json json{{"name", id.name},
              {"serial", serialText(id.serial)},
              {"hardware_revision", id.hardwareRevision},
              {"model", modelName(id.hardwareRevision)},
              {"channel_id", hexEncode(id.channelId.data(), id.channelId.size())}};
    if (key == KeyShown::Yes) json["key"] = hexEncode(id.key.data(), id.key.size());
    return json;
}

void decode(CommandContext& context, DecodeOptions const& options) {
    DeviceLinkResult const link = parseDeviceLink(options.url);
    if (!link.identifier) throw usageError(link.error);
    Zelmor::DeviceIdentifier const& id = *link.identifier;
    if (context.output.json()) {
        context.output.emit(identifierJson(id, options.showKey ? KeyShown::Yes : KeyShown::No));
        return;
    }
    context.output.line(fmt::format("Name:       {}", id.name));
    context.output.line(fmt::format("Serial:     {}", serialText(id.serial)));
    context.output.line(
        fmt::format("Model:      {} ({})", modelName(id.hardwareRevision), revisionText(id.hardwareRevision)));
    context.output.line(fmt::format("Channel id: {}", hexEncode(id.channelId.data(), id.channelId.size())));
    context.output.line(fmt::format("Key:        {}", options.showKey ? hexEncode(id.key.data(), id.key.size())
                                                                      : std::string("hidden (--show-key shows it)")));
}

void encode(CommandContext& context, EncodeOptions const& options) {
    Zelmor::DeviceIdentifier id;
    if (options.name.size() > kDeviceLinkMaxNameBytes)
        throw usageError(fmt::format("--name must be at most {} bytes long", kDeviceLinkMaxNameBytes));
    id.name = options.name;
    id.serial = parseSerial(options.serial, "--serial");
    id.hardwareRevision = parseRevision(options.revision, "--rev");
    auto const channel = parseHexBytes(options.channel, id.channelId.size(), "--channel");
    std::copy(channel.begin(), channel.end(), id.channelId.begin());
    auto const key = parseHexBytes(options.key, id.key.size(), "--key");
    std::copy(key.begin(), key.end(), id.key.begin());
    std::string const link = makeDeviceLink(id);
    context.output.result(Json{{"link", link}}, link);
}

void pair(CommandContext& context) {
    DeviceSession session(context.target);
    Zelmor::WifiAccessKey const key = session.get(&Zelmor::requestGetAccessKeys);
    Zelmor::DeviceIdentifier const id = pairedDevice(session.info(), key);
    std::string const link = makeDeviceLink(id);
    Json json = identifierJson(id, KeyShown::Yes);
    json["link"] = link;
    context.output.result(json, link);
}

}  // namespace

void addLinkCommands(CLI::App& app, CommandContext& context) {
    addCommand(app, "pair", "Print the device link that reaches this device through the hub", context,
               [&context] { pair(context); });

    CLI::App* link = addGroup(app, "link", "Device links (no device needed)");
    auto decodeOptions = std::make_shared<DecodeOptions>();
    CLI::App* decodeCommand = addCommand(*link, "decode", "Show what a device link holds, its key only with --show-key",
                                         context, [&context, decodeOptions] { decode(context, *decodeOptions); });
    decodeCommand->add_option("URL", decodeOptions->url, "The device link")->required();
    decodeCommand->add_flag("--show-key", decodeOptions->showKey,
                            "Also show the key, which reaches the device through the hub");

    auto options = std::make_shared<EncodeOptions>();
    CLI::App* encodeCommand = addCommand(*link, "encode", "Write the device link of the given fields", context,
                                         [&context, options] { encode(context, *options); });
    encodeCommand->add_option("--name", options->name, "Device name, at most 32 bytes")->required();
    encodeCommand->add_option("--serial", options->serial, "Serial number, up to 16 hex digits")->required();
    encodeCommand->add_option("--rev", options->revision, "Hardware revision, e.g. 0x41")->required();
    encodeCommand->add_option("--channel", options->channel, "Channel identifier, 32 hex digits")->required();
    encodeCommand->add_option("--key", options->key, "Key, 64 hex digits")->required();
}
