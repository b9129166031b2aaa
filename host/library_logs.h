// What gRPC and protobuf log themselves.

#pragma once

#include <spdlog/logger.h>

#include <memory>

namespace host {

// Sends their errors to this logger from now on. Written to stderr, they would hold up the thread that logs when nobody
// reads. Peers cause some of these texts: '?' replaces what is not printable ASCII.
void redirect_library_logs(std::shared_ptr<spdlog::logger> logger);

}  // namespace host
