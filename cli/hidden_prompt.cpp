#include "hidden_prompt.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iterator>

#include "command_error.h"

namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
// The device's threads may take a signal as well as this one, so the wait
// looks at the flag now and then rather than counting on an interrupted call.
constexpr int kSignalPollMs = 100;

volatile std::sig_atomic_t stopSignal = 0;

void onStopSignal(int number) { stopSignal = number; }

// Where the prompt goes: the controlling terminal, else standard error.
class PromptOutput {
public:
    PromptOutput() : fd_(::open("/dev/tty", O_WRONLY | O_NOCTTY | O_CLOEXEC)) {}
    ~PromptOutput() {
        if (fd_ >= 0) ::close(fd_);
    }
    PromptOutput(PromptOutput const&) = delete;
    PromptOutput& operator=(PromptOutput const&) = delete;

    void write(std::string const& text) const {
        if (::write(fd_ >= 0 ? fd_ : STDERR_FILENO, text.data(), text.size()) < 0) return;
    }

private:
    int fd_;
};

// Echo off and the stop signals caught for as long as it lives; the
// destructor puts both back as they were.
class QuietTerminal {
public:
    QuietTerminal() {
        stopSignal = 0;
        struct sigaction action {};
        action.sa_handler = onStopSignal;
        sigemptyset(&action.sa_mask);
        for (size_t i = 0; i < std::size(kStopSignals); ++i) ::sigaction(kStopSignals[i], &action, &previous_[i]);
        if (::tcgetattr(STDIN_FILENO, &saved_) != 0) return;
        termios quiet = saved_;
        // ECHONL still shows the Enter that ends the line.
        quiet.c_lflag = (quiet.c_lflag & ~tcflag_t{ECHO}) | ECHONL;
        restore_ = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
    }
    ~QuietTerminal() {
        if (restore_) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
        for (size_t i = 0; i < std::size(kStopSignals); ++i) ::sigaction(kStopSignals[i], &previous_[i], nullptr);
    }
    QuietTerminal(QuietTerminal const&) = delete;
    QuietTerminal& operator=(QuietTerminal const&) = delete;

private:
    termios saved_{};
    bool restore_ = false;
    struct sigaction previous_[std::size(kStopSignals)]{};
};

// One line from standard input; nothing once a stop signal came.
bool readLine(std::string& line) {
    for (;;) {
        if (stopSignal) return false;
        pollfd input{STDIN_FILENO, POLLIN, 0};
        int const ready = ::poll(&input, 1, kSignalPollMs);
        if (ready < 0 && errno != EINTR) return true;
        if (ready <= 0) continue;
        char c = 0;
        ssize_t const count = ::read(STDIN_FILENO, &c, 1);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0 || c == '\n') return true;
        line += c;
    }
}

}  // namespace

bool terminalInput() { return ::isatty(STDIN_FILENO) == 1; }

std::string promptHidden(char const* prompt) {
    PromptOutput output;
    std::string line;
    bool finished = false;
    {
        QuietTerminal quiet;
        output.write(prompt);
        finished = readLine(line);
    }
    if (!finished) {
        output.write("\n");
        throw CommandError("Cancelled.", kExitInterrupted);
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

std::string promptNewPassword() {
    std::string const password = promptHidden("New password: ");
    if (password.empty()) throw usageError("The new password must not be empty");
    if (promptHidden("Repeat the new password: ") != password)
        throw usageError("The two new passwords differ; nothing was changed");
    return password;
}
