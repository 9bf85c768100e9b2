#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// A program run by a test. Its output goes to files in memory, so a chatty
/// child never blocks on output nobody reads. The destructor kills (SIGKILL)
/// and reaps a child that still runs.
class ChildProcess {
public:
    ChildProcess(std::string const& program, std::vector<std::string> const& arguments);
    ~ChildProcess();
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    /// False when the program could not be started; error() tells why.
    bool started() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    std::string const& error() const { return error_; }

    /// The next line of standard output; once the child has ended, a last line
    /// without a newline counts too.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);
    /// Sends a signal; false when the child is gone or was never started.
    bool signal(int number);
    /// The exit code once the child has ended, or 128 plus the signal that
    /// ended it; nothing when the time is up.
    std::optional<int> wait(std::chrono::milliseconds timeout);
    /// What the child wrote and nobody has taken yet.
    std::string takeOutput() { return take(out_); }
    std::string takeErrors() { return take(err_); }

private:
    struct Stream {
        int fd = -1;
        off_t taken = 0;
    };

    template <class Predicate>
    bool waitUntil(std::chrono::milliseconds timeout, Predicate done);
    void reap();
    static std::string unread(Stream const& stream);
    static std::string take(Stream& stream);

    pid_t pid_ = -1;
    std::optional<int> status_;
    Stream out_;
    Stream err_;
    std::string error_;
};

/// What a program did when run to its end; no status when it overran its time.
struct ProgramRun {
    std::optional<int> status;
    std::string out;
    std::string err;

    std::vector<std::string> lines() const;
};

ProgramRun runProgram(std::string const& program, std::vector<std::string> const& arguments,
                      std::chrono::milliseconds timeout);
