#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// A program run by a test as a child process. Standard output and error go
/// to files in memory, so a chatty child never blocks on output nobody reads;
/// standard input is /dev/null. Every wait takes a time limit. The destructor
/// kills (SIGKILL) and reaps a child that still runs.
class ChildProcess {
public:
    /// Starts `program` with `arguments` (without the program name).
    ChildProcess(std::string const& program, std::vector<std::string> const& arguments);
    ~ChildProcess();
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    /// False when the program could not be started; error() tells why.
    bool started() const { return pid_ > 0; }
    std::string const& error() const { return error_; }

    /// The next line of standard output, without its newline; nothing when the
    /// time is up or the child has ended without writing more. Once it has
    /// ended, a last line without a newline counts too.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);
    /// Sends a signal; false when the child is gone or was never started.
    bool signal(int number);
    /// The exit code once the child has ended, or 128 plus the signal that
    /// ended it; nothing when the time is up.
    std::optional<int> wait(std::chrono::milliseconds timeout);
    /// What the child wrote and nobody has taken yet: standard output (readLine
    /// takes from it too) and standard error.
    std::string takeOutput() { return take(out_); }
    std::string takeErrors() { return take(err_); }

private:
    struct Stream {
        int fd = -1;
        off_t taken = 0;
    };

    /// Looks at the child every few milliseconds until `done` holds; false
    /// when the time is up first.
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

/// What a program did when run to its end.
struct ProgramRun {
    /// Exit code (128 + signal when killed by one); nothing when it had to be
    /// killed because it overran its time.
    std::optional<int> status;
    std::string out;
    std::string err;

    /// Standard output split into lines (without newlines).
    std::vector<std::string> lines() const;
};

/// Runs a program to its end, at most `timeout`.
ProgramRun runProgram(std::string const& program, std::vector<std::string> const& arguments,
                      std::chrono::milliseconds timeout);
