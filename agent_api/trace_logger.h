// The agent's trace logger.

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

    // The logger behind this object, shared with the caller; null when there is none. Any thread.
    std::shared_ptr<spdlog::logger> logger();

    // What gets logged, in the numbering of sdk::types::trace_level_e: above 0 errors, above 2 also
    // informational lines. Any thread.
    std::atomic<int32_t> trace_level;

 private:
    std::shared_ptr<spdlog::logger> logger_;
};

static_assert(sizeof(std::atomic<int32_t>) == sizeof(int32_t) && std::atomic<int32_t>::is_always_lock_free);

}  // namespace utils

namespace core {

// The agent's one trace logger; null before the agent has set it, which it does before it starts services.
extern utils::log *g_trace_logger;

}  // namespace core
