#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "log_record.h"

/// The file id of a local log file name: "r", eight hex digits, ".log" (13
/// characters); nothing for any other name.
std::optional<uint32_t> logFileId(std::string_view name);

/// Reads one device's folder of the local log store: every file with a log
/// file name is read whole and decoded for the model `hardwareRevision`; other
/// names are ignored. Records are appended to `records` ordered by time (files
/// taken in identifier order, so records of the same second keep their file
/// order; they are sorted only when the files are not already in time order).
/// Returns false with `error` set, and `records` as they were, when the folder
/// or one of its log files cannot be read.
bool loadLogDirectory(std::filesystem::path const& directory, uint8_t hardwareRevision, std::vector<LogRecord>& records,
                      std::string& error);
