#include "interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace {

// Written only by the signal handler; lock-free, so safe to touch there.
std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// The handler writes a byte here so that a sleeper in poll() wakes at once.
int wakePipe[2] = {-1, -1};

extern "C" void onInterrupt(int) {
    int const saved = errno;
    interrupted.store(true);
    if (wakePipe[1] >= 0) {
        char const byte = 1;
        [[maybe_unused]] ssize_t const n = ::write(wakePipe[1], &byte, 1);
    }
    errno = saved;
}

}  // namespace

void catchInterrupts() {
    if (wakePipe[0] < 0 && ::pipe2(wakePipe, O_CLOEXEC | O_NONBLOCK) != 0) wakePipe[0] = wakePipe[1] = -1;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

bool interruptRequested() { return interrupted.load(); }

bool sleepUnlessInterrupted(std::chrono::milliseconds duration) {
    auto const end = std::chrono::steady_clock::now() + duration;
    while (!interrupted.load()) {
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) return true;
        pollfd wake{wakePipe[0], POLLIN, 0};
        // Without the pipe (pipe2 failed) poll just sleeps: the flag is seen
        // at the latest when the time is up.
        ::poll(&wake, wakePipe[0] >= 0 ? 1 : 0, static_cast<int>(left.count()));
    }
    return false;
}
