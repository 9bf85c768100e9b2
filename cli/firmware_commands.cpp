// Firmware files: checking one against a model, and sending one to the device.
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>

#include <fmt/core.h>

#include "argument_values.h"
#include "command_context.h"
#include "command_error.h"
#include "device_session.h"
#include "firmware_image.h"
#include "hardware_revision.h"
#include "interrupt.h"
#include "progress_bar.h"

namespace {

struct FirmwareOptions {
    std::string file;
    std::string revision;
};

std::vector<uint8_t> readImage(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw CommandError(fmt::format("{}: cannot be read", path), kExitFailure);
    std::vector<uint8_t> image(std::istreambuf_iterator<char>(in), {});
    if (in.bad()) throw CommandError(fmt::format("{}: cannot be read", path), kExitFailure);
    return image;
}

CommandError unfit(std::string const& path, uint8_t revision) {
    return CommandError(
        fmt::format("{} is not a firmware update for {} ({})", path, modelName(revision), revisionText(revision)),
        kExitFailure);
}

void check(CommandContext& context, FirmwareOptions const& options) {
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

void update(CommandContext& context, FirmwareOptions const& options) {
    // Before the session: the engine reads the image until its link is gone.
    std::vector<uint8_t> const image = readImage(options.file);
    DeviceSession session(context.target);
    uint8_t const revision = session.info().hardwareRevision;
    // The transfer announces the size in 32 bits.
    uint16_t const version = image.size() > std::numeric_limits<uint32_t>::max()
                                 ? 0
                                 : checkFirmwareImage(image.data(), image.size(), revision);
    if (version == 0) throw unfit(options.file, revision);

    catchInterrupts();
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
    CLI::App* firmware = addGroup(app, "firmware", "Firmware update files");
    auto options = std::make_shared<FirmwareOptions>();

    CLI::App* checkCommand = addCommand(*firmware, "check", "Tell whether FILE is a sound update for a model", context,
                                        [&context, options] { check(context, *options); });
    checkCommand->add_option("FILE", options->file, "The firmware file")->required()->check(CLI::ExistingFile);
    checkCommand->add_option("--rev", options->revision, "The model's hardware revision, e.g. 0x41")->required();

    addCommand(*firmware, "update", "Send FILE to the device and install it (Ctrl-C cancels)", context,
               [&context, options] { update(context, *options); })
        ->add_option("FILE", options->file, "The firmware file")
        ->required()
        ->check(CLI::ExistingFile);
}
