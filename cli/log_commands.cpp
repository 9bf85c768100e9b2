// The device's data log: log list, log sync (the local mirror) and log
// export-csv (from a mirrored folder, no device needed).
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <memory>
#include <utility>

#include <fmt/core.h>

#include "argument_values.h"
#include "command_context.h"
#include "command_error.h"
#include "device_session.h"
#include "log_csv.h"
#include "log_directory.h"
#include "log_mirror.h"
#include "log_record.h"
#include "progress_bar.h"

namespace {

struct LogOptions {
    std::string directory;
    std::string model;
    std::string from;
    std::string to;
    std::string output;
};

void list(CommandContext& context) {
    DeviceSession session(context.target);
    auto const files = session.get(&Zelmor::requestGetFileList);
    size_t const recordSize = logRecordSize(session.info().hardwareRevision);
    for (auto const& file : files) {
        std::string const name = logFileName(file.fileId);
        context.output.result(
            Json{{"id", file.fileId}, {"file", name}, {"size", file.size}, {"records", file.size / recordSize}},
            fmt::format("{}  {:>9} bytes  {:>7} records", name, file.size, file.size / recordSize));
    }
    if (files.empty() && !context.output.json()) context.output.line("The data log is empty.");
}

void sync(CommandContext& context, LogOptions const& options) {
    DeviceSession session(context.target);
    Zelmor::DeviceInfo const& info = session.info();
    std::string const directory = deviceLogDirectory(options.directory, info.serial).string();
    LogMirror mirror(session.device());
    // Shared with the sync's callbacks, which may outlive this function when
    // the link ends in the middle of a block.
    auto progress = std::make_shared<ProgressBar>("log sync");
    LogMirror::Outcome const outcome = session.await<LogMirror::Outcome>([&](auto deliver) {
        LogMirror::Callbacks callbacks;
        callbacks.progress = [progress](uint64_t done, uint64_t total) { progress->update(done, total); };
        callbacks.done = deliver;
        mirror.startSync(directory, info.hardwareRevision, std::move(callbacks));
    });
    progress->finish();

    context.output.result(Json{{"directory", directory},
                               {"complete", outcome.complete()},
                               {"files_complete", outcome.filesComplete},
                               {"files_incomplete", outcome.filesIncomplete},
                               {"bytes_fetched", outcome.bytesFetched}},
                          fmt::format("{}: {} files complete, {} incomplete, {} bytes fetched", directory,
                                      outcome.filesComplete, outcome.filesIncomplete, outcome.bytesFetched));
    if (!outcome.localError.empty()) throw CommandError(outcome.localError, kExitFailure);
    session.check(outcome.firstFailure);
    if (!outcome.complete())
        throw CommandError(fmt::format("{} log files are incomplete; run log sync again", outcome.filesIncomplete),
                           kExitFailure);
}

/// Writes the CSV into FILE through a temporary file beside it, so that FILE
/// is either the old one or the whole new one.
void writeCsvFile(std::string const& path, std::vector<LogRecord> const& records, int64_t from, int64_t to) {
    std::string const temporary = path + ".part";
    {
        std::FILE* out = std::fopen(temporary.c_str(), "wb");
        bool const written = out && writeLogCsv(out, records, from, to) == LogCsvResult::written;
        bool const closed = out && std::fclose(out) == 0;
        if (!written || !closed) {
            ::unlink(temporary.c_str());
            throw CommandError(fmt::format("{}: cannot be written", temporary), kExitFailure);
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        throw CommandError(fmt::format("{}: cannot be written", path), kExitFailure);
    }
}

void exportCsv(CommandContext const&, LogOptions const& options) {
    uint8_t const revision = parseRevision(options.model, "--model");
    int64_t const from = options.from.empty() ? 0 : parseTime(options.from, "--from", ClockText::Log);
    int64_t const to =
        options.to.empty() ? std::numeric_limits<int64_t>::max() : parseTime(options.to, "--to", ClockText::Log);
    std::vector<LogRecord> records;
    std::string error;
    if (!loadLogDirectory(options.directory, revision, records, error)) throw CommandError(error, kExitFailure);
    if (!options.output.empty()) {
        writeCsvFile(options.output, records, from, to);
        return;
    }
    if (writeLogCsv(stdout, records, from, to) != LogCsvResult::written)
        throw CommandError("Standard output cannot be written", kExitFailure);
}

}  // namespace

void addLogCommands(CLI::App& app, CommandContext& context) {
    CLI::App* log = addGroup(app, "log", "The device's data log");
    auto options = std::make_shared<LogOptions>();

    addCommand(*log, "list", "List the device's log files", context, [&context] { list(context); });

    addCommand(*log, "sync", "Copy what is new in the device's log into DIR/<serial>/r<id>.log", context,
               [&context, options] { sync(context, *options); })
        ->add_option("DIR", options->directory, "Root of the local log store")
        ->required();

    CLI::App* csv = addCommand(*log, "export-csv", "Write the records of a mirrored log folder as CSV", context,
                               [&context, options] { exportCsv(context, *options); });
    csv->add_option("DIR", options->directory, "One device's folder, as log sync fills it (DIR/<serial>)")
        ->required()
        ->check(CLI::ExistingDirectory);
    csv->add_option("--model", options->model, "The device's hardware revision, e.g. 0x41")->required();
    csv->add_option("--from", options->from,
                    "First time: seconds since 1970 or \"YYYY-MM-DD HH:MM:SS\" as the log shows it");
    csv->add_option("--to", options->to, "Last time, same forms; the first record at or after it ends the export");
    csv->add_option("--output,-o", options->output, "Write to FILE instead of standard output");
}
