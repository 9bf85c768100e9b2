// What a running program costs, read from the kernel about the process
// itself: resident memory, CPU time and threads.
#pragma once

#include <sys/resource.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

struct Memory {
    double rssMiB = 0;
    double anonMiB = 0;
    double fileMiB = 0;
};

/// VmRSS with its anonymous and file-backed parts, from /proc/self/status.
inline Memory residentMemory() {
    Memory memory;
    std::ifstream file("/proc/self/status");
    std::string line;
    while (std::getline(file, line)) {
        auto field = [&line](char const* name, double& value) {
            if (line.rfind(name, 0) == 0) value = std::stod(line.substr(std::strlen(name))) / 1024.0;
        };
        field("VmRSS:", memory.rssMiB);
        field("RssAnon:", memory.anonMiB);
        field("RssFile:", memory.fileMiB);
    }
    return memory;
}

struct CpuUse {
    double seconds = 0;
    // Voluntary context switches: a thread of the process going back to
    // sleep, one for each time something woke it.
    double sleeps = 0;
};

/// User and system time and sleeps of all the threads so far.
inline CpuUse cpuUse() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](timeval t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    return {seconds(usage.ru_utime) + seconds(usage.ru_stime), static_cast<double>(usage.ru_nvcsw)};
}

/// The threads of this process now: the entries of /proc/self/task.
inline size_t threadCount() {
    std::filesystem::directory_iterator const tasks("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}
