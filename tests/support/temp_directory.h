#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

/// Bytes the files of `folder` hold together; 0 when it does not exist.
inline uint64_t folderBytes(std::filesystem::path const& folder) {
    uint64_t bytes = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        bytes += it->file_size(error);
    return bytes;
}

/// A fresh folder under the test's temporary directory, removed afterwards.
class TempDirectory {
public:
    TempDirectory()
        : path_(std::filesystem::path(testing::TempDir()) / ("zelmor_" + std::to_string(std::random_device()()))) {
        std::filesystem::create_directories(path_);
    }
    ~TempDirectory() { std::filesystem::remove_all(path_); }
    TempDirectory(TempDirectory const&) = delete;
    TempDirectory& operator=(TempDirectory const&) = delete;

    std::filesystem::path const& path() const { return path_; }
    std::string file(std::string const& name) const { return (path_ / name).string(); }
    /// Writes `bytes` to the file `name` in the folder and gives its path.
    std::string write(std::string const& name, std::vector<uint8_t> const& bytes) const {
        std::ofstream(path_ / name, std::ios::binary)
            .write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return file(name);
    }

private:
    std::filesystem::path path_;
};
