#include "listener_thread.h"

#include <pthread.h>

ListenerThread::~ListenerThread() { leave(); }

bool ListenerThread::listening() const {
    std::lock_guard lock(mutex_);
    return run_ && run_->wanted_.load() && !run_->ended_.load();
}

bool ListenerThread::start(std::function<Loop()> const& prepare) {
    for (;;) {
        std::thread previous;
        {
            std::lock_guard lock(mutex_);
            if (run_ && !run_->ended_.load()) {
                if (run_->wanted_.load()) return true;
                // Stopped from the callback, which is still running: the loop
                // keeps what it listens on, so it simply goes on.
                if (onLoopThread()) {
                    run_->wanted_.store(true);
                    return true;
                }
            }
            if (!run_) {
                Loop loop = prepare();
                if (!loop) return false;
                auto run = std::make_shared<Run>();
                thread_ = std::thread([run, loop = std::move(loop)] {
                    loop(*run);
                    run->ended_.store(true);
                });
                // Named here, so that the name is there once start() returns.
                ::pthread_setname_np(thread_.native_handle(), name_.c_str());
                run_ = std::move(run);
                return true;
            }
            run_->wanted_.store(false);
            run_.reset();
            previous = std::move(thread_);
        }
        // The previous loop ended or is ending; a callback of its may have
        // started another meanwhile, hence the second look.
        previous.join();
    }
}

void ListenerThread::stop() {
    std::thread previous;
    {
        std::lock_guard lock(mutex_);
        if (!run_) return;
        run_->wanted_.store(false);
        if (onLoopThread()) return;
        run_.reset();
        previous = std::move(thread_);
    }
    previous.join();
}

void ListenerThread::leave() {
    std::thread previous;
    {
        std::lock_guard lock(mutex_);
        if (!run_) return;
        run_->wanted_.store(false);
        run_.reset();
        previous = std::move(thread_);
    }
    if (previous.get_id() == std::this_thread::get_id())
        previous.detach();
    else
        previous.join();
}
