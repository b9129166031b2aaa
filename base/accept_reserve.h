// A descriptor kept for the time when the process has no other left: a peer that waits to be accepted would then
// keep the listening socket ready for ever and fill its queue, so that others can't even connect.

#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "base/unique_fd.h"

namespace base {

// For one thread at a time.
class accept_reserve {
 public:
    accept_reserve() { refill(); }

    // Accepts a peer, if one waits, and gives it to `hang_up`, which closes it now or later. Never waits for a peer:
    // accept() fails for want of descriptors before it looks whether there is one.
    template <class HANG_UP>
    void turn_one_away(int listen_fd, HANG_UP hang_up) {
        if (!reserve_.valid()) {
            usleep(10'000);  // another thread was quicker to take it; wait for descriptors, but do not spin
        }
        reserve_.reset();
        pollfd waiting = {.fd = listen_fd, .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, 0) > 0) {
            unique_fd peer(accept4(listen_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
            if (peer.valid()) {
                hang_up(std::move(peer));
            }
        }
        refill();
    }
    void turn_one_away(int listen_fd) {
        turn_one_away(listen_fd, [](unique_fd) {});
    }

 private:
    void refill() { reserve_.reset(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

    unique_fd reserve_;
};

}  // namespace base
