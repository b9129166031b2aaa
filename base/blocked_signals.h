// Keeps writes to a peer's descriptor from raising signals that end or stop the process.

#pragma once

#include <pthread.h>
#include <signal.h>

#include <ctime>

namespace base {

// While this lives, the calling thread's writes fail instead of raising a signal: EPIPE for a reader that is
// gone (SIGPIPE), EFBIG above RLIMIT_FSIZE (SIGXFSZ). Writing to a terminal as a background process doesn't
// stop the process (SIGTTOU). The thread's signal mask is restored at the end. For one thread.
class blocked_write_signals {
 public:
    blocked_write_signals() {
        sigemptyset(&blocked_);
        for (const int signal : {SIGPIPE, SIGXFSZ, SIGTTOU}) {
            sigaddset(&blocked_, signal);
        }
        pthread_sigmask(SIG_BLOCK, &blocked_, &before_);
        for (const int signal : {SIGPIPE, SIGXFSZ, SIGTTOU}) {
            if (sigismember(&before_, signal) == 1) {
                sigdelset(&blocked_, signal);  // the caller's to take
            }
        }
    }
    ~blocked_write_signals() {
        const timespec at_once = {};
        while (sigtimedwait(&blocked_, nullptr, &at_once) > 0) {  // a blocked signal would be delivered now
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    blocked_write_signals(const blocked_write_signals &) = delete;
    blocked_write_signals &operator=(const blocked_write_signals &) = delete;

 private:
    sigset_t blocked_, before_;
};

}  // namespace base
