// The agent as a service: what systemd, or whoever listens at NOTIFY_SOCKET, learns of it (sd_notify(3)). Without such a
// listener nothing happens.

#pragma once

#include <chrono>
#include <string>

namespace host {

// Both servers serve.
void report_ready(const std::string &status);
void report_stopping();

// Keeps the service manager's watchdog quiet for as long as the service request thread is alive. For one thread.
class service_watchdog {
 public:
    service_watchdog();

    // How long until the next look(); without a watchdog a day.
    std::chrono::nanoseconds interval() const { return interval_; }

    // Reports that the agent lives, if its service request thread punches its heartbeat, and otherwise that it does not.
    void look();

 private:
    std::chrono::nanoseconds interval_ = std::chrono::hours(24);
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    bool enabled_ = false, held_ = false;
};

}  // namespace host
