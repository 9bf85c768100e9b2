#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <type_traits>

/// Collects the arguments of one callback; get() waits for it. The state is
/// shared with the callback, so a callback that finishes on its worker thread
/// after get() has returned touches nothing that is gone.
template <class... Args>
class CallbackResult {
public:
    using Value = std::tuple<std::decay_t<Args>...>;

    std::function<void(Args...)> callback() {
        return [state = state_](Args... args) {
            std::lock_guard lock(state->mutex);
            if (state->value) return;
            state->value.emplace(std::decay_t<Args>(args)...);
            state->condition.notify_all();
        };
    }

    Value get(std::chrono::seconds limit = std::chrono::seconds(60)) {
        std::unique_lock lock(state_->mutex);
        if (!state_->condition.wait_for(lock, limit, [this] { return state_->value.has_value(); }))
            throw std::runtime_error("callback never came");
        return *state_->value;
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable condition;
        std::optional<Value> value;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};
