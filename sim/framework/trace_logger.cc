// The stand-in's trace logger. It is null until the host sets one.

#include "agent_api/trace_logger.h"

utils::log *core::g_trace_logger = nullptr;

std::shared_ptr<spdlog::logger> utils::log::logger() { return logger_; }
