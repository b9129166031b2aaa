#include "sim/framework/trace_level.h"

#include <atomic>

#include "agent_api/trace_logger.h"

namespace sim {

namespace {

std::atomic<sdk::types::trace_level_e> g_sdk_trace_level = sdk::types::TRACE_LEVEL_INFO;

spdlog::level::level_enum to_spdlog(sdk::types::trace_level_e level) {
    switch (level) {
        case sdk::types::TRACE_LEVEL_NONE:
            return spdlog::level::off;
        case sdk::types::TRACE_LEVEL_ERROR:
            return spdlog::level::err;
        case sdk::types::TRACE_LEVEL_WARN:
            return spdlog::level::warn;
        case sdk::types::TRACE_LEVEL_INFO:
            return spdlog::level::info;
        case sdk::types::TRACE_LEVEL_DEBUG:
            return spdlog::level::debug;
        case sdk::types::TRACE_LEVEL_VERBOSE:
            break;
    }
    return spdlog::level::trace;
}

}  // namespace

sdk::types::trace_level_e sdk_trace_level() { return g_sdk_trace_level; }

}  // namespace sim

void core::trace_update(sdk::types::trace_level_e level) {
    if (!g_trace_logger) {
        return;
    }
    g_trace_logger->trace_level = static_cast<int32_t>(level);
    if (const auto logger = g_trace_logger->logger()) {
        logger->set_level(sim::to_spdlog(level));
    }
}

void core::flush_logs() {
    const auto logger = g_trace_logger ? g_trace_logger->logger() : nullptr;
    if (logger) {
        logger->flush();
    }
}

void debug::nyx_set_trace_level(sdk::types::trace_level_e level) { sim::g_sdk_trace_level = level; }
