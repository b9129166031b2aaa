#include "client/core/interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace nyxctl {
namespace {

std::atomic<int> g_event = -1;  // readable after a signal, on whatever thread it came

void on_signal(int) {
    const int error = errno;
    (void)eventfd_write(g_event, 1);
    errno = error;
}

}  // namespace

void catch_interrupts() {
    if (g_event >= 0) {
        return;
    }
    g_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action = {};
    action.sa_handler = on_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool interrupted() { return is_readable(g_event); }

outcome_s interrupted_failure() { return {NYXCTL_EXIT_INTERRUPTED, "interrupted"}; }

bool is_readable(int fd) {
    pollfd event = {.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&event, 1, 0) > 0;
}

bool wait_to_read(int fd) {
    pollfd both[] = {{.fd = g_event, .events = POLLIN, .revents = 0},
                     {.fd = fd, .events = POLLIN, .revents = 0}};
    while (poll(both, 2, -1) < 0 && errno == EINTR) {
    }
    return both[0].revents == 0;
}

}  // namespace nyxctl
