// The data log copies that the device windows keep, held against the devices'
// own files as zelmorctl log sync reads them over the protocol.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "child_process.h"
#include "simulator_process.h"

using LogFolder = std::map<std::string, std::vector<uint8_t>>;  // file name -> content

/// The files of `folder`; empty when it does not exist.
inline LogFolder readLogFolder(std::filesystem::path const& folder) {
    LogFolder files;
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        std::ifstream in(it->path(), std::ios::binary);
        files[it->path().filename().string()] = std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
    }
    return files;
}

inline uint64_t logBytes(LogFolder const& folder) {
    uint64_t bytes = 0;
    for (auto const& file : folder) bytes += file.second.size();
    return bytes;
}

/// zelmorctl log sync of one device into `root`, by its address or its link.
/// A lost answer leaves a file incomplete and the status 1; the next run goes
/// on from there, as a user runs it again. True once a run completed.
inline bool fetchDeviceLog(SimDevice const& device, bool throughHub, std::filesystem::path const& root) {
    std::vector<std::string> const arguments{throughHub ? "--link" : "--lan", throughHub ? device.link : device.address,
                                             "log", "sync", root.string()};
    for (int run = 0; run < 5; ++run)
        if (runProgram(ZELMORCTL_PATH, arguments, std::chrono::minutes(2)).status == 0) return true;
    return false;
}

enum class CopyCheck { Identical, Incomplete, Differs };

struct CopyComparison {
    CopyCheck check = CopyCheck::Identical;
    std::string detail;  // the first file that is not identical, and how
};

/// A copy against the device's files fetched just `before` its last sync
/// began and just `after` it ended. Every file must equal the device's, but
/// the newest, which the device kept writing meanwhile: that one must be the
/// start of the device's file, and at least as long as it was before the
/// sync. A copy that is a shorter start of a file is incomplete (a block was
/// lost; the next sync fetches it); anything else differs.
inline CopyComparison compareCopy(LogFolder const& copy, LogFolder const& before, LogFolder const& after) {
    for (auto const& [name, content] : copy)
        if (!after.contains(name)) return {CopyCheck::Differs, name + " is not on the device"};
    CopyComparison result;
    for (auto const& [name, content] : after) {
        auto const found = copy.find(name);
        std::vector<uint8_t> const none;
        std::vector<uint8_t> const& mine = found == copy.end() ? none : found->second;
        bool const prefix = mine.size() <= content.size() && std::equal(mine.begin(), mine.end(), content.begin());
        if (!prefix) return {CopyCheck::Differs, name + ": the copy's bytes differ"};
        bool const newest = name == after.rbegin()->first;
        size_t const least = newest && before.contains(name) ? before.at(name).size() : content.size();
        if (mine.size() < least && result.check == CopyCheck::Identical)
            result = {CopyCheck::Incomplete,
                      name + ": " + std::to_string(mine.size()) + " of " + std::to_string(content.size()) + " bytes"};
    }
    return result;
}
