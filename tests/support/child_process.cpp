#include "child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <thread>

extern char** environ;

ChildProcess::ChildProcess(std::string const& program, std::vector<std::string> const& arguments) {
    out_.fd = ::memfd_create("stdout", MFD_CLOEXEC);
    err_.fd = ::memfd_create("stderr", MFD_CLOEXEC);
    if (out_.fd < 0 || err_.fd < 0) {
        error_ = std::strerror(errno);
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out_.fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err_.fd, STDERR_FILENO);
    std::vector<std::string> strings{program};
    strings.insert(strings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& s : strings) argv.push_back(s.data());
    argv.push_back(nullptr);
    int const spawned = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        error_ = program + ": " + std::strerror(spawned);
        pid_ = -1;
    }
}

ChildProcess::~ChildProcess() {
    if (signal(SIGKILL)) wait(std::chrono::seconds(10));
    for (int fd : {out_.fd, err_.fd})
        if (fd >= 0) ::close(fd);
}

template <class Predicate>
bool ChildProcess::waitUntil(std::chrono::milliseconds timeout, Predicate done) {
    auto const deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        reap();
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void ChildProcess::reap() {
    int raw = 0;
    if (pid_ > 0 && !status_ && ::waitpid(pid_, &raw, WNOHANG) == pid_)
        status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
}

std::string ChildProcess::unread(Stream const& stream) {
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = ::pread(stream.fd, buffer, sizeof buffer, stream.taken + std::ssize(text))) > 0;)
        text.append(buffer, static_cast<size_t>(got));
    return text;
}

std::string ChildProcess::take(Stream& stream) {
    std::string text = unread(stream);
    stream.taken += std::ssize(text);
    return text;
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds timeout) {
    std::string text;
    auto const lineComplete = [&] {
        text = unread(out_);
        return text.find('\n') != std::string::npos || status_.has_value();
    };
    if (!waitUntil(timeout, lineComplete) || text.empty()) return std::nullopt;
    size_t const length = std::min(text.find('\n'), text.size());
    out_.taken += static_cast<off_t>(std::min(length + 1, text.size()));
    return text.substr(0, length);
}

bool ChildProcess::signal(int number) {
    reap();
    return pid_ > 0 && !status_ && ::kill(pid_, number) == 0;
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds timeout) {
    waitUntil(timeout, [&] { return status_.has_value() || pid_ <= 0; });
    return status_;
}

std::vector<std::string> ProgramRun::lines() const {
    std::vector<std::string> result;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
}

ProgramRun runProgram(std::string const& program, std::vector<std::string> const& arguments,
                      std::chrono::milliseconds timeout) {
    // A child that overruns its time is killed by the destructor.
    ChildProcess child(program, arguments);
    ProgramRun run;
    run.status = child.wait(timeout);
    run.out = child.takeOutput();
    run.err = child.started() ? child.takeErrors() : child.error();
    return run;
}
