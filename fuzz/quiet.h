// Fuzz targets run thousands of inputs a second, most of them wrong: nobody reads what is said about each.

#pragma once

#include <google/protobuf/stubs/logging.h>
#include <spdlog/sinks/null_sink.h>

#include <iostream>
#include <memory>

#include "agent_api/trace_logger.h"

namespace fuzz {

// Log lines of the product are put together, all of them, and dropped; those of protobuf and of std::cerr too.
inline void be_quiet() {
    constexpr int32_t k_everything = 5;
    static utils::log log(
        std::make_shared<spdlog::logger>("fuzz", std::make_shared<spdlog::sinks::null_sink_mt>()),
        k_everything);
    log.logger()->set_level(spdlog::level::trace);
    log.trace_level = k_everything;
    core::g_trace_logger = &log;
    google::protobuf::SetLogHandler(nullptr);
    std::cerr.rdbuf(nullptr);
}

}  // namespace fuzz
