// The agent's event-thread framework: threads that run callbacks of watchers, one at a time.
//
// A watcher's memory is its owner's and must stay in place while the watcher is started. All operations act
// on the event loop of the calling thread, and a watcher belongs to the thread that started it. When the thread
// ends, the library releases the watchers of connections that are still open without stopping them: a loop must
// not touch its watchers after its thread has ended.

#pragma once

#include <cstddef>

namespace sdk::event_thread {

struct io_;
struct timer_;

using io_callback = void (*)(io_ *io, int fd, int events);
using timer_callback = void (*)(timer_ *timer);

// Readiness of a descriptor, as in io_init and in the callback.
inline constexpr int k_io_readable = 1;

// Room for the framework's own watcher inside io_ and timer_.
inline constexpr size_t k_watcher_size = 64;

struct io_ {
    io_callback callback;
    alignas(std::max_align_t) unsigned char watcher[k_watcher_size];
};

struct timer_ {
    timer_callback callback;
    alignas(std::max_align_t) unsigned char watcher[k_watcher_size];
};

// Prepares a watcher that is not started. `events` is k_io_readable. Level-triggered: the callback runs again for
// as long as the descriptor is readable.
void io_init(io_ *io, io_callback callback, int fd, int events);
void io_start(io_ *io);

// Stopping a prepared watcher that is not started does nothing; the library stops no watcher that was never
// prepared. A watcher may be stopped in its own callback, and its memory released right after.
void io_stop(io_ *io);

// Prepares a timer that fires `initial` seconds after its start and then every `repeat` seconds (0: once). A
// timer that is running is stopped first.
void timer_init(timer_ *timer, timer_callback callback, double initial, double repeat);
void timer_start(timer_ *timer);

}  // namespace sdk::event_thread
