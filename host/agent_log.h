// The agent's trace logger.

#pragma once

#include <spdlog/sinks/sink.h>

#include <chrono>
#include <memory>

namespace spdlog {
class async_logger;
class logger;
namespace details {
class thread_pool;
}
}  // namespace spdlog

namespace host {

class limiting_sink;
class reporting_sink;

// Whoever logs never waits: a thread of this object's own writes the lines to `target`. What a target that does not take
// them costs is bounded: 2048 lines of 1 KiB, and after that the oldest ones. Peers cause many lines, so each call site,
// the "[function:line]" that a line starts with, gets `lines_a_second` (0: any number). A line says how many were left
// out for either reason. The logger: any thread; the object itself: one thread.
class agent_log {
 public:
    agent_log(spdlog::sink_ptr target, unsigned lines_a_second);
    // Waits until the target has taken all lines.
    ~agent_log();
    agent_log(const agent_log &) = delete;
    agent_log &operator=(const agent_log &) = delete;

    const std::shared_ptr<spdlog::logger> &logger() const { return logger_; }

    // Waits until the target has taken all lines so far, at most for `patience`; false when it has not.
    bool drain(std::chrono::milliseconds patience);

 private:
    std::shared_ptr<spdlog::details::thread_pool> writer_;
    std::shared_ptr<reporting_sink> reporting_;
    std::shared_ptr<spdlog::async_logger> queue_;
    std::shared_ptr<limiting_sink> limiting_;
    std::shared_ptr<spdlog::logger> logger_;
};

}  // namespace host
