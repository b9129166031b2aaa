// What gRPC itself logs.

#pragma once

#include <spdlog/logger.h>

#include <memory>

namespace host {

// Sends it to this logger from now on, as errors: at most 10 lines a second, since peers cause them, and with '?' for
// what is not printable ASCII, since some of it is theirs.
void redirect_grpc_log(std::shared_ptr<spdlog::logger> logger);

}  // namespace host
