// Firmware files: checking one against a model, asking the firmware file
// server for a device's update, and sending a file or the server's image to
// the device.
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>

#include <fmt/core.h>

#include "argument_values.h"
#include "command_context.h"
#include "command_error.h"
#include "device_session.h"
#include "firmware_download.h"
#include "firmware_image.h"
#include "firmware_server.h"
#include "hardware_revision.h"
#include "interrupt.h"
#include "progress_bar.h"

namespace {

constexpr char kNoUpdate[] = "No firmware update is available at the moment";

struct FirmwareOptions {
    std::string file;
    std::string revision;
    std::string server;  // --firmware-server; empty: ZELMOR_FIRMWARE_SERVER
};

/// What the server offers a device: the image and its version, or nothing
/// when it has no newer one.
struct ServerOffer {
    std::string url;
    std::vector<uint8_t> image;
    uint16_t version = 0;
};

std::vector<uint8_t> readImage(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw CommandError(fmt::format("{}: cannot be read", path), kExitFailure);
    std::vector<uint8_t> image(std::istreambuf_iterator<char>(in), {});
    if (in.bad()) throw CommandError(fmt::format("{}: cannot be read", path), kExitFailure);
    return image;
}

CommandError unfit(std::string const& source, uint8_t revision) {
    return CommandError(
        fmt::format("{} is not a firmware update for {} ({})", source, modelName(revision), revisionText(revision)),
        kExitFailure);
}

/// The version of `image` when it is sound for `revision`; throws otherwise.
uint16_t checkedVersion(std::vector<uint8_t> const& image, uint8_t revision, std::string const& source) {
    // The transfer announces the size in 32 bits.
    uint16_t const version = image.size() > std::numeric_limits<uint32_t>::max()
                                 ? 0
                                 : checkFirmwareImage(image.data(), image.size(), revision);
    if (version == 0) throw unfit(source, revision);
    return version;
}

/// Downloads the device's update once; the image returned is the one checked.
/// Without a server, or when the server has no file or no newer version,
/// nothing is offered.
std::optional<ServerOffer> serverOffer(FirmwareOptions const& options, Zelmor::DeviceInfo const& info,
                                       std::function<bool()> const& keepGoing = {}) {
    FirmwareServerSetting const setting = firmwareServerSetting(options.server);
    if (!setting.error.empty()) throw usageError(setting.error);
    ServerOffer offer;
    offer.url = firmwareFileUrl(setting.server, info.hardwareRevision, info.firmwareVersion);
    if (offer.url.empty()) return std::nullopt;
    FirmwareDownload download = downloadFirmware(offer.url, keepGoing);
    switch (download.status) {
        case FirmwareDownloadStatus::NotFound:
            return std::nullopt;
        case FirmwareDownloadStatus::Cancelled:
            throw CommandError("Firmware update cancelled.", kExitInterrupted);
        case FirmwareDownloadStatus::Failed:
            throw CommandError(download.error, kExitFailure);
        case FirmwareDownloadStatus::Downloaded:
            break;
    }
    offer.image = std::move(download.body);
    offer.version = checkedVersion(offer.image, info.hardwareRevision, "The file at " + offer.url);
    if (offer.version <= info.firmwareVersion) return std::nullopt;
    return offer;
}

void checkFile(CommandContext& context, FirmwareOptions const& options) {
    if (options.revision.empty()) throw usageError("firmware check FILE needs --rev, the model's hardware revision");
    uint8_t const revision = parseRevision(options.revision, "--rev");
    std::vector<uint8_t> const image = readImage(options.file);
    uint16_t const version = checkFirmwareImage(image.data(), image.size(), revision);
    Json json{{"file", options.file}, {"hardware_revision", revision}, {"fits", version != 0}};
    json["firmware"] = version ? Json(firmwareText(version)) : Json();
    if (context.output.json()) context.output.emit(json);
    if (version == 0) throw unfit(options.file, revision);
    if (!context.output.json())
        context.output.line(fmt::format("{}: firmware {} for {} ({})", options.file, firmwareText(version),
                                        modelName(revision), revisionText(revision)));
}

void checkServer(CommandContext& context, FirmwareOptions const& options) {
    if (!options.revision.empty()) throw usageError("--rev goes with a FILE; the device tells its own revision");
    DeviceSession session(context.target);
    Zelmor::DeviceInfo const& info = session.info();
    std::optional<ServerOffer> const offer = serverOffer(options, info);
    Json json{{"available", offer.has_value()},
              {"firmware", offer ? Json(firmwareText(offer->version)) : Json()},
              {"current", firmwareText(info.firmwareVersion)},
              {"url", offer ? Json(offer->url) : Json()}};
    context.output.result(json, offer ? fmt::format("Firmware {} is available (the device runs {}).",
                                                    firmwareText(offer->version), firmwareText(info.firmwareVersion))
                                      : std::string(kNoUpdate));
}

void update(CommandContext& context, FirmwareOptions const& options) {
    // Before the session: the engine reads the image until its link is gone.
    std::vector<uint8_t> image = options.file.empty() ? std::vector<uint8_t>() : readImage(options.file);
    DeviceSession session(context.target);
    uint8_t const revision = session.info().hardwareRevision;
    catchInterrupts();
    uint16_t version = 0;
    if (options.file.empty()) {
        std::optional<ServerOffer> offer = serverOffer(options, session.info(), [] { return !interruptRequested(); });
        if (!offer) {
            context.output.result(Json{{"ok", true}, {"firmware", nullptr}}, kNoUpdate);
            return;
        }
        image = std::move(offer->image);
        version = offer->version;
    } else {
        version = checkedVersion(image, revision, options.file);
    }

    auto progress = std::make_shared<ProgressBar>("firmware");
    Zelmor::ResponseCode const code = session.result([&](Zelmor::DoneCallback done) {
        session.device().requestUpdateFirmware(
            image.data(), static_cast<uint32_t>(image.size()),
            [progress](uint32_t sent, uint32_t total) {
                progress->update(sent, total);
                return !interruptRequested();
            },
            done);
    });
    progress->finish();
    if (code == Zelmor::ResponseCode::Cancelled) throw CommandError("Firmware update cancelled.", kExitInterrupted);
    session.check(code);
    context.output.result(Json{{"ok", true}, {"firmware", firmwareText(version)}},
                          fmt::format("Firmware {} installed.", firmwareText(version)));
}

}  // namespace

void addFirmwareCommands(CLI::App& app, CommandContext& context) {
    auto options = std::make_shared<FirmwareOptions>();
    app.add_option("--firmware-server", options->server,
                   fmt::format("Firmware file server as HOST[:PORT] (default: ${}; none: no updates are looked for)",
                               kFirmwareServerVariable))
        ->group("Device and output");

    CLI::App* firmware = addGroup(app, "firmware", "Firmware updates: files and the firmware file server");
    CLI::App* checkCommand = addCommand(
        *firmware, "check",
        "Tell whether FILE is a sound update for a model (--rev), or, without FILE, whether the firmware file "
        "server has a newer firmware for the device",
        context,
        [&context, options] { options->file.empty() ? checkServer(context, *options) : checkFile(context, *options); });
    checkCommand->add_option("FILE", options->file, "The firmware file")->check(CLI::ExistingFile);
    checkCommand->add_option("--rev", options->revision, "The model's hardware revision, e.g. 0x41");

    addCommand(*firmware, "update",
               "Send FILE, or without FILE the firmware file server's newer firmware, to the device and install it "
               "(Ctrl-C cancels)",
               context, [&context, options] { update(context, *options); })
        ->add_option("FILE", options->file, "The firmware file")
        ->check(CLI::ExistingFile);
}
