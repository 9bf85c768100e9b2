// Passwords and device keys out of sight: zelmorctl takes the password from a
// file, the environment or a hidden prompt on a pseudo-terminal, keeps both
// out of its command line, and prints a link's key only where asked to.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>

#include <fmt/format.h>

#include "loopback_peers.h"
#include "zelmorctl_fleet.h"

namespace {

constexpr char kPassword[] = "kingfisher";

std::string drain(int fd) {
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(got));
    return text;
}

/// zelmorctl with a pseudo-terminal as its controlling terminal and standard
/// input, and standard output and error going to a pipe. Each answer is typed
/// once the terminal shows its prompt, which it shows only once echo is off.
struct TerminalRun {
    using Answers = std::vector<std::pair<std::string, std::string>>;  // prompt, what is typed

    TerminalRun(std::vector<std::string> arguments, Answers const& answers) {
        int out[2];
        if (::pipe(out) != 0) throw std::runtime_error("no pipe");
        arguments.insert(arguments.begin(), ZELMORCTL_PATH);
        std::vector<char*> argv;
        for (auto& a : arguments) argv.push_back(a.data());
        argv.push_back(nullptr);
        pid_t const pid = ::forkpty(&master, nullptr, nullptr, nullptr);
        if (pid == 0) {
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(out[1], STDERR_FILENO);
            ::execv(ZELMORCTL_PATH, argv.data());
            ::_exit(127);
        }
        ::close(out[1]);
        for (auto const& [prompt, typed] : answers) {
            if (!showsNext(prompt)) {
                ::kill(pid, SIGKILL);
                break;
            }
            EXPECT_FALSE(echo()) << prompt;
            EXPECT_EQ(::write(master, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
        }
        printed = drain(out[0]);
        int wstatus = 0;
        ::waitpid(pid, &wstatus, 0);
        status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
        echoAfterwards = echo();
        ::fcntl(master, F_SETFL, O_NONBLOCK);
        shown += drain(master);
        for (int fd : {out[0], master}) ::close(fd);
    }

    bool echo() const {
        termios settings{};
        ::tcgetattr(master, &settings);
        return settings.c_lflag & ECHO;
    }

    bool showsNext(std::string const& text) {
        for (pollfd p{master, POLLIN, 0}; shown.find(text, consumed) == std::string::npos;) {
            char buffer[256];
            ssize_t const got = ::poll(&p, 1, 60000) == 1 ? ::read(master, buffer, sizeof buffer) : -1;
            EXPECT_GT(got, 0) << "the terminal never showed " << text << "; it shows: " << shown;
            if (got <= 0) return false;
            shown.append(buffer, static_cast<size_t>(got));
        }
        consumed = shown.find(text, consumed) + text.size();
        return true;
    }

    int master = -1;
    std::string shown, printed;
    size_t consumed = 0;
    int status = -1;
    bool echoAfterwards = false;
};

class ZelmorctlSecrets : public testing::Test {
protected:
    // The first device is locked for reading, the second for changing passwords.
    SimFleet fleet{{"--no-announce", "--history", "0", "--device", "V,user=kingfisher", "--device", "V,user=bilge"}};
    TempDirectory dir;
    std::string const passwordFile =
        dir.write("password", {'k', 'i', 'n', 'g', 'f', 'i', 's', 'h', 'e', 'r', '\r', '\n'});
    std::string const link = fleet.device(0).link;
    std::string const linkFile = dir.write("link", std::vector<uint8_t>(link.begin(), link.end()));
};

TEST_F(ZelmorctlSecrets, NeitherPasswordNorKeyIsPrintedUnlessTheCommandAsksForIt) {
    std::string const keyBase64 = link.substr(link.find("&k=") + 3);
    std::string const keyHex = jsonResult(zelmorctl({"--json", "link", "decode", "--show-key", link}))["key"];
    std::string const lan = fleet.device(0).address;
    std::string const env = std::string("ZELMOR_PASSWORD=") + kPassword;
    struct Case {
        std::vector<std::string> arguments;
        std::vector<std::string> environment;
        int status;
        bool printsKey;
    };
    Case const cases[] = {
        {{"--lan", lan, "--password-file", passwordFile, "--json", "stats"}, {}, 0, false},
        {{"--lan", lan, "--json", "info"}, {env}, 0, false},
        {{"--link-file", linkFile, "--password-file", passwordFile, "info"}, {}, 0, false},
        {{"--lan", lan, "stats"}, {}, 1, false},
        {{"--lan", lan, "--password-file", dir.file("missing"), "info"}, {}, 2, false},
        {{"link", "decode", link}, {}, 0, false},
        {{"--json", "link", "decode", link}, {}, 0, false},
        {{"link", "decode", link.substr(0, link.find("&k="))}, {}, 2, false},
        {{"link", "decode", link.substr(0, link.find("&k=") + 1) + keyBase64}, {}, 2, false},
        {{"--lan", lan, "pair"}, {env}, 0, true},
        {{"link", "decode", "--show-key", link}, {}, 0, true},
    };
    for (Case const& c : cases) {
        ProgramRun const run = zelmorctl(c.arguments, c.environment);
        SCOPED_TRACE(fmt::format("{}  {}", fmt::join(c.environment, " "), fmt::join(c.arguments, " ")));
        EXPECT_EQ(run.status, c.status) << run.err;
        std::string const printed = run.out + run.err;
        EXPECT_EQ(printed.find(kPassword), std::string::npos) << printed;
        EXPECT_EQ(printed.find(keyHex) != std::string::npos || printed.find(keyBase64) != std::string::npos,
                  c.printsKey)
            << printed;
    }
}

TEST_F(ZelmorctlSecrets, TheCommandLineOfARunningZelmorctlHoldsNoPassword) {
    // A silent hub on an address of its own: zelmorctl is past reading its
    // secrets and waits for an answer while its command line is read.
    RawSocket hub = RawSocket::listening("127.0.0.9", 7209);
    ChildProcess zelmorctl(ZELMORCTL_PATH,
                           {"--hub", "127.0.0.9", "--link-file", linkFile, "--password-file", passwordFile, "info"});
    RawSocket connection = hub.accept();
    int const fd = ::open(fmt::format("/proc/{}/cmdline", zelmorctl.pid()).c_str(), O_RDONLY | O_CLOEXEC);
    std::string const commandLine = drain(fd);
    ::close(fd);
    EXPECT_NE(commandLine.find("--password-file"), std::string::npos) << commandLine;
    EXPECT_EQ(commandLine.find(kPassword), std::string::npos) << commandLine;
    EXPECT_EQ(commandLine.find(link.substr(link.find("&k="))), std::string::npos) << commandLine;
    connection.close();
    EXPECT_EQ(zelmorctl.wait(std::chrono::minutes(1)), 3) << zelmorctl.takeErrors();
}

TEST_F(ZelmorctlSecrets, TheHiddenPromptAsksOnTheTerminalAndPutsEchoBackOnEveryWayOut) {
    std::string const locked = fleet.device(0).address, changing = fleet.device(1).address;
    struct Case {
        std::vector<std::string> arguments;
        TerminalRun::Answers answers;
        int status;
        std::string printed;  // on standard output and error: no prompt there
    };
    Case const cases[] = {
        {{"--lan", locked, "--json", "unlock"}, {{"Password: ", "kingfisher\n"}}, 0, "{\"ok\":true}\n"},
        {{"--lan", locked, "stats"}, {{"Password: ", "\x03"}}, 130, "Cancelled.\n"},
        {{"--lan", changing, "lock", "user"},
         {{"Password: ", "bilge\n"}, {"New password: ", "heron\n"}, {"Repeat the new password: ", "heron\r\n"}},
         0,
         "User password set.\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(fmt::format("{}", fmt::join(c.arguments, " ")));
        TerminalRun const run(c.arguments, c.answers);
        EXPECT_EQ(run.status, c.status);
        EXPECT_EQ(run.printed, c.printed);
        EXPECT_TRUE(run.echoAfterwards);
        // Nothing typed is echoed.
        for (auto const& [prompt, typed] : c.answers) EXPECT_EQ(run.shown.find(typed.substr(0, 4)), std::string::npos);
    }
    // The password typed last is the device's now.
    EXPECT_FALSE(jsonResult(zelmorctl({"--lan", changing, "--password", "heron", "--json", "info"}))["locked"]);
}

}  // namespace
