// Bounds the time that a thread spends waiting for slow readers.

#pragma once

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace base {

// A budget of `most`, of which a fifth of the time that passes is refilled. For one thread.
class wait_budget {
 public:
    using clock = std::chrono::steady_clock;

    explicit wait_budget(clock::duration most) : most_(most), left_(most) {}

    // Waits until `fd` may be written to. False when the budget is used up.
    bool wait_writable(int fd) {
        const auto begin = clock::now();
        left_ = std::min(most_, left_ + (begin - since_) / 5);
        const auto left_ms = std::chrono::floor<std::chrono::milliseconds>(left_).count();
        pollfd waiting = {.fd = fd, .events = POLLOUT, .revents = 0};
        if (left_ms > 0 && poll(&waiting, 1, static_cast<int>(left_ms)) > 0) {
            usleep(1000);  // a terminal may report that it is writable and take nothing: no spin
        }
        since_ = clock::now();
        left_ -= since_ - begin;
        return left_ms > 0;
    }

 private:
    const clock::duration most_;
    clock::duration left_;
    clock::time_point since_ = clock::now();
};

}  // namespace base
