// This process's descriptors and threads as /proc shows them: how a test finds
// the socket or the thread that a class keeps to itself.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

/// The numbers in a /proc/self directory of numbered entries, less the
/// descriptor that reads the directory.
inline std::set<int> procEntries(char const* directory) {
    std::set<int> numbers;
    DIR* const listing = ::opendir(directory);
    if (!listing) return numbers;
    while (dirent const* entry = ::readdir(listing))
        if (entry->d_name[0] != '.') numbers.insert(std::atoi(entry->d_name));
    numbers.erase(::dirfd(listing));
    ::closedir(listing);
    return numbers;
}
inline std::set<int> openDescriptors() { return procEntries("/proc/self/fd"); }

/// What is in `after` and not in `before`.
inline std::set<int> added(std::set<int> const& before, std::set<int> const& after) {
    std::set<int> fresh;
    for (int n : after)
        if (!before.contains(n)) fresh.insert(n);
    return fresh;
}

/// The id of the thread of this process named `name`; 0 when there is none.
inline pid_t threadNamed(std::string const& name) {
    for (int id : procEntries("/proc/self/task")) {
        std::ifstream comm("/proc/self/task/" + std::to_string(id) + "/comm");
        std::string line;
        if (std::getline(comm, line) && line == name) return id;
    }
    return 0;
}

/// The thread's state letter ('R' running, 'S' asleep in a wait...); 0 once it is gone.
inline char threadState(pid_t id) {
    std::ifstream stat("/proc/self/task/" + std::to_string(id) + "/stat");
    std::string line;
    if (!std::getline(stat, line) || line.rfind(") ") == std::string::npos) return 0;
    return line[line.rfind(") ") + 2];
}
