// Settings of the agent's gRPC server.

#pragma once

#include <grpcpp/server_builder.h>

#include "base/request_limits.h"

namespace host {

inline void apply_server_settings(grpc::ServerBuilder &builder) {
    using option = grpc::ServerBuilder::SyncServerOption;
    // With gRPC's default of two, threads come and go with every few calls of eight clients.
    constexpr int k_pollers = 16;
    builder.SetMaxReceiveMessageSize(base::k_max_grpc_request_size);
    builder.SetSyncServerOption(option::MIN_POLLERS, k_pollers);
    builder.SetSyncServerOption(option::MAX_POLLERS, k_pollers);
}

}  // namespace host
