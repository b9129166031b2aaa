// The event-thread framework, on poll(2): each thread has a loop of its own.

#include "agent_api/event_thread.h"

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <vector>

#include "platform.h"

namespace {

using namespace sdk::event_thread;
using clock = std::chrono::steady_clock;

struct timer_times {
    double initial_s, repeat_s;
};

thread_local bool t_stopping = false;
thread_local std::vector<io_ *> t_ios;                        // started; whose turn it is comes first
thread_local std::map<timer_ *, clock::time_point> t_timers;  // started, and when they fire
std::atomic<uint32_t> g_heartbeats;

template <typename value_t, typename watcher_t>
value_t load(const watcher_t *watcher) {
    value_t value;
    memcpy(&value, watcher->watcher, sizeof(value));
    return value;
}

clock::time_point after(double seconds) {
    return clock::now() + std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
}

int poll_timeout_ms() {
    auto next = after(60);
    for (const auto &[timer, when] : t_timers) next = std::min(next, when);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - clock::now());
    return std::max(0, static_cast<int>(left.count()));
}

// One at a time: what a callback stops, releases or starts again is not among the others that were ready with it.
void run_one_io() {
    std::vector<pollfd> fds;
    for (const io_ *io : t_ios) fds.push_back({load<int>(io), POLLIN, 0});
    if (poll(fds.data(), fds.size(), poll_timeout_ms()) <= 0) return;
    const auto ready = std::ranges::find_if(fds, [](const pollfd &fd) { return fd.revents != 0; });
    const auto io = t_ios.begin() + (ready - fds.begin());
    std::rotate(t_ios.begin(), io + 1, t_ios.end());
    t_ios.back()->callback(t_ios.back(), ready->fd, k_io_readable);
}

void run_one_timer() {
    const auto due =
        std::ranges::find_if(t_timers, [](const auto &timer) { return timer.second <= clock::now(); });
    if (due == t_timers.end()) return;
    timer_ *const timer = due->first;
    const double repeat_s = load<timer_times>(timer).repeat_s;
    due->second = repeat_s > 0 ? after(repeat_s) : clock::time_point::max();
    timer->callback(timer);
}

}  // namespace

void sdk::event_thread::io_init(io_ *io, io_callback callback, int fd, int) {
    io->callback = callback;
    memcpy(io->watcher, &fd, sizeof(fd));
}
void sdk::event_thread::io_start(io_ *io) { t_ios.push_back(io); }
void sdk::event_thread::io_stop(io_ *io) { std::erase(t_ios, io); }

void sdk::event_thread::timer_init(timer_ *timer, timer_callback callback, double initial, double repeat) {
    t_timers.erase(timer);
    timer->callback = callback;
    const timer_times times = {initial, repeat};
    memcpy(timer->watcher, &times, sizeof(times));
}
void sdk::event_thread::timer_start(timer_ *timer) {
    t_timers[timer] = after(load<timer_times>(timer).initial_s);
}

void platform::run_events() {
    while (!t_stopping) {
        run_one_io();
        run_one_timer();
    }
}
void platform::stop_events() { t_stopping = true; }

sdk::lib::thread platform::g_service_thread;
constinit thread_local sdk::lib::thread *sdk::lib::thread::t_curr_thread_ = nullptr;
void sdk::lib::thread::punch_heartbeat() { ++g_heartbeats; }
uint32_t platform::num_heartbeats() { return g_heartbeats; }
