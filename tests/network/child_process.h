#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// A program run by a test as a child process: standard output and standard
/// error on pipes, standard input from /dev/null. Both pipes are drained
/// whenever the test waits for anything, so a chatty child never blocks on a
/// full pipe. Every wait takes a time limit. The destructor kills (SIGKILL)
/// and reaps a child that is still running.
class ChildProcess {
public:
    /// Starts `program` with `arguments` (without the program name).
    /// `environment` entries "NAME=value" are set on top of this process's
    /// environment; "NAME" alone removes the variable.
    ChildProcess(std::string const& program, std::vector<std::string> const& arguments,
                 std::vector<std::string> const& environment = {});
    ~ChildProcess();
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    /// False when the program could not be started; error() tells why.
    bool started() const { return pid_ > 0; }
    std::string const& error() const { return error_; }
    pid_t pid() const { return pid_; }

    /// The next line of standard output, without its newline; nothing when
    /// the time is up or the output has ended. A last line without a newline
    /// is returned once the output ends.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);
    /// The same for standard error.
    std::optional<std::string> readErrorLine(std::chrono::milliseconds timeout);

    /// Sends a signal; false when the child is gone or was never started.
    bool signal(int number);

    /// Waits for the child to end and gives its status: the exit code, or 128
    /// plus the signal that ended it. Nothing when the time is up. Output that
    /// arrives meanwhile is kept for readLine and takeOutput.
    std::optional<int> wait(std::chrono::milliseconds timeout);

    /// Everything on standard output not yet taken by readLine. After wait()
    /// has given a status, the streams are read to their end first.
    std::string takeOutput();
    /// The same for standard error.
    std::string takeErrors();

private:
    struct Stream {
        int fd = -1;
        std::string buffer;
        bool ended = false;
    };
    using Deadline = std::chrono::steady_clock::time_point;

    /// Reads whatever is ready and reaps the child when it ends, until `done`
    /// holds or the deadline passes. Returns `done()`.
    template <class Predicate>
    bool pump(Deadline deadline, Predicate done);
    std::optional<std::string> readLineFrom(Stream& stream, std::chrono::milliseconds timeout);
    void drainAfterExit();
    void reap(bool block);

    pid_t pid_ = -1;
    int pidFd_ = -1;
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
                      std::chrono::milliseconds timeout, std::vector<std::string> const& environment = {});
