// State that any thread may use.

#pragma once

#include <mutex>
#include <utility>

namespace sim {

// Starts as State{}. Any thread.
template <class State>
class guarded {
 public:
    State copy() {
        std::lock_guard guard(lock_);
        return state_;
    }

    void put(State state) {
        std::lock_guard guard(lock_);
        state_ = std::move(state);
    }

    // Runs `change` under the lock: it must neither wait nor use this object.
    template <class Change>
    auto with(Change change) {
        std::lock_guard guard(lock_);
        return change(state_);
    }

 private:
    std::mutex lock_;
    State state_;
};

}  // namespace sim
