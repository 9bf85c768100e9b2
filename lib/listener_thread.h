#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

/// The thread a scanner listens on. Its loop calls the scanner's callback, and
/// that callback may start, stop or destroy the scanner, so:
/// - no thread is ever joined from itself;
/// - stop() on the thread asks the loop to end once the callback returns, and a
///   start() there afterwards takes that back: the same loop goes on;
/// - start() elsewhere first joins a loop that ended by itself or is ending,
///   then starts a new one;
/// - leave() and the destructor on the thread detach it. The loop's flags live
///   in a block the thread shares and the loop owns what it listens on, so it
///   ends safely once the callback returns, whatever became of its owner.
/// No join is made with the lock held: a callback that calls in while another
/// thread waits for its loop gets an answer instead of a deadlock.
class ListenerThread {
public:
    /// What the loop looks at between two waits, shared with its thread.
    class Run {
    public:
        /// False once the loop is asked to end.
        bool wanted() const { return wanted_.load(); }

    private:
        friend class ListenerThread;
        std::atomic<bool> wanted_{true};
        std::atomic<bool> ended_{false};
    };
    /// Runs on the new thread; returns when run.wanted() turns false or when
    /// what it listens on fails.
    using Loop = std::function<void(Run const& run)>;

    /// `name` is given to every thread (top, gdb and /proc show it); at most
    /// 15 characters.
    explicit ListenerThread(std::string name) : name_(std::move(name)) {}
    ~ListenerThread();
    ListenerThread(ListenerThread const&) = delete;
    ListenerThread& operator=(ListenerThread const&) = delete;

    /// True when a loop runs and is wanted.
    bool listening() const;
    /// True when listening already or when a stop from the loop's own thread
    /// was taken back. Otherwise joins the previous loop, asks `prepare` for a
    /// new one under the lock (an empty one: false, nothing started) and runs
    /// it on a new thread.
    bool start(std::function<Loop()> const& prepare);
    /// Ends the loop and waits for it; on the loop's own thread, see above.
    void stop();
    /// Ends the loop and forgets it: waits for it, or on its own thread lets it
    /// end by itself. A start() afterwards always starts a new loop.
    void leave();

private:
    bool onLoopThread() const { return thread_.get_id() == std::this_thread::get_id(); }

    std::string const name_;
    mutable std::mutex mutex_;  // guards run_ and thread_, which are set together
    std::shared_ptr<Run> run_;
    std::thread thread_;
};
