// Log lines of the services, through the agent's trace logger.

#pragma once

#include <spdlog/logger.h>

#include <utility>

#include "agent_api/trace_logger.h"
#include "svc/common/ret_code.h"

namespace svc {

struct severity_s {
    int32_t threshold;  // lines are written when the agent's trace level is above this
    spdlog::level::level_enum level;
};
inline constexpr severity_s k_error = {0, spdlog::level::err};
inline constexpr severity_s k_info = {2, spdlog::level::info};
inline constexpr severity_s k_debug = {3, spdlog::level::debug};
inline constexpr severity_s k_verbose = {4, spdlog::level::trace};

// Writes one line and flushes the logger. Writes nothing when the agent has no logger or a lower trace level.
// Any thread; nothing that fails in logging reaches the caller.
template <class... Args>
void trace(severity_s severity, spdlog::format_string_t<Args...> format, Args &&...args) noexcept {
    try {
        if (!core::g_trace_logger || core::g_trace_logger->trace_level <= severity.threshold) {
            return;
        }
        if (auto logger = core::g_trace_logger->logger()) {
            logger->log(severity.level, format, std::forward<Args>(args)...);
            logger->flush();
        }
    } catch (...) {
        // The line is lost, the service goes on.
    }
}

}  // namespace svc

// The line starts with the function that logs and its source line.
#define SVC_TRACE(severity, format, ...) \
    ::svc::trace(severity, "[{}:{}] " format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define SVC_TRACE_ERR(format, ...) SVC_TRACE(::svc::k_error, format __VA_OPT__(, ) __VA_ARGS__)
#define SVC_TRACE_INFO(format, ...) SVC_TRACE(::svc::k_info, format __VA_OPT__(, ) __VA_ARGS__)
#define SVC_TRACE_DEBUG(format, ...) SVC_TRACE(::svc::k_debug, format __VA_OPT__(, ) __VA_ARGS__)
#define SVC_TRACE_VERBOSE(format, ...) SVC_TRACE(::svc::k_verbose, format __VA_OPT__(, ) __VA_ARGS__)
