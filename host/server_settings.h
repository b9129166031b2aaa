// Settings of the agent's gRPC server.

#pragma once

#include <grpcpp/server_builder.h>

namespace host {

// The largest request that is taken.
inline constexpr int k_max_receive_bytes = 64 * 1024 * 1024;

inline void apply_server_settings(grpc::ServerBuilder &builder) {
    using option = grpc::ServerBuilder::SyncServerOption;
    // With gRPC's default of two, threads come and go with every few calls of eight clients.
    constexpr int k_pollers = 16;
    builder.SetMaxReceiveMessageSize(k_max_receive_bytes);
    builder.SetSyncServerOption(option::MIN_POLLERS, k_pollers);
    builder.SetSyncServerOption(option::MAX_POLLERS, k_pollers);
}

}  // namespace host
