// A descriptor kept in hand for the time when the process has no other left: a peer that waits to be accepted would then
// keep the listening socket ready for ever and fill its queue, so that others can't even connect.

#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace base {

// For one thread at a time.
class accept_reserve {
 public:
    accept_reserve() { refill(); }

    // Accepts one waiting peer and hangs up on it.
    void turn_one_away(int listen_fd) {
        if (!reserve_.valid()) {
            usleep(10'000);  // another thread was quicker to take it; wait for descriptors, but do not spin
        }
        reserve_.reset();
        unique_fd(accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC));
        refill();
    }

 private:
    void refill() { reserve_.reset(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

    unique_fd reserve_;
};

}  // namespace base
