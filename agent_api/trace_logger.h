// The agent's trace logger, to which the services write their log lines. Rules for all operations: sdk_ret.h.

#pragma once

#include <spdlog/logger.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace utils {

class log {
 public:
    explicit log(std::shared_ptr<spdlog::logger> logger, int32_t level)
        : trace_level(level), logger_(std::move(logger)) {}

    // Returns the logger of this object, shared with the caller, or null when it has none: then nothing is logged.
    // Called for each line that the trace level lets pass; the services flush the logger after it. Its own level
    // filters again, and it must be one for several threads (spdlog's sinks ending in _mt).
    std::shared_ptr<spdlog::logger> logger();

    // How much is logged, in the numbering of sdk::types::trace_level_e: above 0 errors, above 2 also informational
    // lines, above 3 debug lines, above 4 trace lines. May change at any time.
    std::atomic<int32_t> trace_level;

 private:
    std::shared_ptr<spdlog::logger> logger_;
};

static_assert(sizeof(std::atomic<int32_t>) == sizeof(int32_t) && std::atomic<int32_t>::is_always_lock_free);

}  // namespace utils

namespace core {

// The agent's one trace logger. The agent sets it before it starts services and leaves it, and the object, in place
// until they have ended. Null: nothing is logged, and everything else works as with a logger.
extern utils::log *g_trace_logger;

}  // namespace core
