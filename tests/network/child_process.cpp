#include "child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

extern char** environ;

namespace {

/// This process's environment with the changes applied ("NAME=value" sets,
/// "NAME" removes).
std::vector<std::string> mergedEnvironment(std::vector<std::string> const& changes) {
    std::vector<std::string> result;
    auto nameOf = [](std::string const& entry) { return entry.substr(0, entry.find('=')); };
    for (char** e = environ; *e; ++e) {
        std::string const entry = *e;
        bool replaced = false;
        for (auto const& change : changes) replaced = replaced || nameOf(change) == nameOf(entry);
        if (!replaced) result.push_back(entry);
    }
    for (auto const& change : changes)
        if (change.find('=') != std::string::npos) result.push_back(change);
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (auto& s : strings) result.push_back(s.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

ChildProcess::ChildProcess(std::string const& program, std::vector<std::string> const& arguments,
                           std::vector<std::string> const& environment) {
    int outPipe[2], errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0) {
        error_ = std::strerror(errno);
        return;
    }
    if (::pipe2(errPipe, O_CLOEXEC) != 0) {
        error_ = std::strerror(errno);
        ::close(outPipe[0]);
        ::close(outPipe[1]);
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);

    std::vector<std::string> argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<std::string> envp = mergedEnvironment(environment);
    pid_t pid = -1;
    int const spawned =
        ::posix_spawn(&pid, program.c_str(), &actions, nullptr, pointers(argv).data(), pointers(envp).data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    out_.fd = outPipe[0];
    err_.fd = errPipe[0];
    if (spawned != 0) {
        error_ = program + ": " + std::strerror(spawned);
        out_.ended = err_.ended = true;
        return;
    }
    pid_ = pid;
    pidFd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0 && !status_) {
        ::kill(pid_, SIGKILL);
        reap(true);
    }
    for (int fd : {out_.fd, err_.fd, pidFd_})
        if (fd >= 0) ::close(fd);
}

template <class Predicate>
bool ChildProcess::pump(Deadline deadline, Predicate done) {
    while (!done()) {
        auto const left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return done();
        pollfd fds[3];
        Stream* streams[3] = {};
        nfds_t n = 0;
        for (Stream* stream : {&out_, &err_}) {
            if (stream->ended) continue;
            streams[n] = stream;
            fds[n++] = {stream->fd, POLLIN, 0};
        }
        bool const watchExit = pid_ > 0 && !status_ && pidFd_ >= 0;
        if (watchExit) fds[n++] = {pidFd_, POLLIN, 0};
        // Without a pidfd the exit is noticed by polling waitpid every 50 ms.
        int const limit = watchExit || status_ || pid_ <= 0 ? static_cast<int>(left.count())
                                                            : std::min<int>(static_cast<int>(left.count()), 50);
        if (n == 0 && (status_ || pid_ <= 0)) return done();
        if (::poll(fds, n, limit) < 0 && errno != EINTR) return done();
        for (nfds_t i = 0; i < n; ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR)) || !streams[i]) continue;
            char buffer[4096];
            ssize_t const got = ::read(fds[i].fd, buffer, sizeof buffer);
            if (got > 0)
                streams[i]->buffer.append(buffer, static_cast<size_t>(got));
            else if (got == 0 || errno != EINTR)
                streams[i]->ended = true;
        }
        if (!status_) reap(false);
    }
    return true;
}

void ChildProcess::reap(bool block) {
    if (pid_ <= 0 || status_) return;
    int raw = 0;
    pid_t r;
    do {
        r = ::waitpid(pid_, &raw, block ? 0 : WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r != pid_) return;
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
}

std::optional<std::string> ChildProcess::readLineFrom(Stream& stream, std::chrono::milliseconds timeout) {
    pump(std::chrono::steady_clock::now() + timeout,
         [&] { return stream.buffer.find('\n') != std::string::npos || stream.ended; });
    size_t const newline = stream.buffer.find('\n');
    if (newline == std::string::npos && (!stream.ended || stream.buffer.empty())) return std::nullopt;
    size_t const length = newline == std::string::npos ? stream.buffer.size() : newline;
    std::string line = stream.buffer.substr(0, length);
    stream.buffer.erase(0, newline == std::string::npos ? length : length + 1);
    return line;
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds timeout) {
    return readLineFrom(out_, timeout);
}

std::optional<std::string> ChildProcess::readErrorLine(std::chrono::milliseconds timeout) {
    return readLineFrom(err_, timeout);
}

bool ChildProcess::signal(int number) {
    if (pid_ <= 0) return false;
    reap(false);
    return !status_ && ::kill(pid_, number) == 0;
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds timeout) {
    pump(std::chrono::steady_clock::now() + timeout, [&] { return status_.has_value() || pid_ <= 0; });
    return status_;
}

void ChildProcess::drainAfterExit() {
    // The child is gone, but a grandchild could still hold the pipes open:
    // give the rest a short while rather than waiting for ever.
    if (status_)
        pump(std::chrono::steady_clock::now() + std::chrono::seconds(5), [&] { return out_.ended && err_.ended; });
}

std::string ChildProcess::takeOutput() {
    drainAfterExit();
    return std::exchange(out_.buffer, {});
}

std::string ChildProcess::takeErrors() {
    drainAfterExit();
    return std::exchange(err_.buffer, {});
}

std::vector<std::string> ProgramRun::lines() const {
    std::vector<std::string> result;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
}

ProgramRun runProgram(std::string const& program, std::vector<std::string> const& arguments,
                      std::chrono::milliseconds timeout, std::vector<std::string> const& environment) {
    ChildProcess child(program, arguments, environment);
    ProgramRun run;
    if (!child.started()) {
        run.err = child.error();
        return run;
    }
    run.status = child.wait(timeout);
    if (!run.status) {
        child.signal(SIGKILL);
        child.wait(std::chrono::seconds(10));
    }
    run.out = child.takeOutput();
    run.err = child.takeErrors();
    return run;
}
