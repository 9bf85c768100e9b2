#pragma once

#include <functional>
#include <memory>
#include <mutex>

/// A callback that may be replaced at any time while listening threads call
/// it. Copies share one slot, so a thread that holds a copy can still call
/// (or find empty) the callback after the object that set it is gone.
template <class Signature>
class SharedCallback {
public:
    using Callback = std::function<Signature>;

    void set(Callback callback) const {
        std::lock_guard lock(slot_->mutex);
        slot_->callback = std::move(callback);
    }

    /// Calls a copy, with no lock held: the callback may replace itself.
    template <class... Args>
    void operator()(Args&&... args) const {
        Callback callback;
        {
            std::lock_guard lock(slot_->mutex);
            callback = slot_->callback;
        }
        if (callback) callback(std::forward<Args>(args)...);
    }

private:
    struct Slot {
        std::mutex mutex;
        Callback callback;
    };
    std::shared_ptr<Slot> slot_ = std::make_shared<Slot>();
};
