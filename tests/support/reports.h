#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

inline constexpr auto kReportPatience = std::chrono::seconds(20);

/// What a callback reported from another thread, in order, for a test to wait
/// on. The state is shared with the callback, so a callback still running
/// after the test has looked touches nothing that is gone.
template <class T>
class Reports {
public:
    std::function<void(T const&)> callback() {
        return [state = state_](T const& item) { add(*state, item); };
    }
    void add(T const& item) { add(*state_, item); }

    /// The reports that `match` (all without one), once there are `count` of
    /// them or the time is up (then fewer).
    std::vector<T> wait(size_t count, std::function<bool(T const&)> const& match = {}) const {
        std::unique_lock lock(state_->mutex);
        std::vector<T> found;
        state_->changed.wait_for(lock, kReportPatience, [&] {
            found.clear();
            for (T const& item : state_->items)
                if (!match || match(item)) found.push_back(item);
            return found.size() >= count;
        });
        return found;
    }
    std::vector<T> all() const { return wait(0); }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<T> items;
    };
    static void add(State& state, T const& item) {
        std::lock_guard lock(state.mutex);
        state.items.push_back(item);
        state.changed.notify_all();
    }
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// For states nobody signals: polls `condition` until it holds or the time is up.
template <class Condition>
bool eventually(Condition condition) {
    auto const deadline = std::chrono::steady_clock::now() + kReportPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
