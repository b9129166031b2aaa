#include "host/service_manager.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>

#include "sim/framework/watchdog.h"

namespace host {

namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

void notify(const std::string &text) { sd_notify(0, text.c_str()); }

// A heartbeat comes every second, the first one ten seconds after the start.
bool service_thread_is_alive(clock::duration uptime) {
    constexpr auto k_first = milliseconds(13'000), k_patience = milliseconds(3000);
    const auto threads = sim::thread_heartbeats(false);
    const auto found = std::ranges::find(threads, "svc_server", &sim::thread_heartbeats_s::thread);
    return found != threads.end() &&
           (found->punched == 0 ? uptime < k_first : found->since_last < k_patience);
}

}  // namespace

void report_ready(const std::string &status) { notify("READY=1\nSTATUS=" + status); }

void report_stopping() { notify("STOPPING=1\nSTATUS=Stopping"); }

service_watchdog::service_watchdog() {
    uint64_t limit_us = 0;
    enabled_ = sd_watchdog_enabled(0, &limit_us) > 0;
    if (enabled_) {
        interval_ =
            std::min<std::chrono::nanoseconds>(std::chrono::microseconds(limit_us / 4), milliseconds(1000));
    }
}

void service_watchdog::look() {
    if (!enabled_) {
        return;
    }
    const bool alive = service_thread_is_alive(clock::now() - start_);
    if (alive) {
        notify(held_ ? "WATCHDOG=1\nSTATUS=Serving" : "WATCHDOG=1");
    } else if (!held_) {
        notify("STATUS=The service request thread is held");
    }
    held_ = !alive;
}

}  // namespace host
