#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

/// Everything a scanner's callback delivered, in order, for a test to wait on.
/// The state is shared with the callback, so a callback still running on the
/// scanner's thread after the test has looked touches nothing that is gone.
template <class T>
class Sightings {
public:
    using Match = std::function<bool(T const&)>;

    std::function<void(T const&)> callback() {
        return [state = state_](T const& sighting) {
            std::lock_guard lock(state->mutex);
            state->all.push_back(sighting);
            state->changed.notify_all();
        };
    }

    /// The sightings that `match`, once there are at least `count` of them or
    /// the time is up (then fewer).
    std::vector<T> waitFor(Match const& match, size_t count = 1,
                           std::chrono::seconds limit = std::chrono::seconds(20)) const {
        std::unique_lock lock(state_->mutex);
        std::vector<T> found;
        state_->changed.wait_for(lock, limit, [&] {
            found.clear();
            for (T const& sighting : state_->all)
                if (match(sighting)) found.push_back(sighting);
            return found.size() >= count;
        });
        return found;
    }

    std::vector<T> all() const {
        std::lock_guard lock(state_->mutex);
        return state_->all;
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<T> all;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};
