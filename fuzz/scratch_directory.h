#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

// A private folder for targets that read files, made once per process and
// removed at its end. It lies in memory (/dev/shm) where the system has such
// a file system, so that millions of runs never wait for a disk: the store
// syncs what it writes.
class ScratchDirectory {
public:
    ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::path const base =
            std::filesystem::is_directory("/dev/shm", ignored) ? "/dev/shm" : std::filesystem::temp_directory_path();
        std::string pattern = (base / "zelmor-fuzz-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) std::abort();
        path_ = pattern;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(ScratchDirectory const&) = delete;
    ScratchDirectory& operator=(ScratchDirectory const&) = delete;

    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};
