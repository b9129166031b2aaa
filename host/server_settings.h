// Settings of the agent's gRPC server.

#pragma once

#include <grpcpp/resource_quota.h>
#include <grpcpp/server_builder.h>

#include "base/request_limits.h"

namespace host {

inline void apply_server_settings(grpc::ServerBuilder &builder) {
    using option = grpc::ServerBuilder::SyncServerOption;
    // Threads that wait for the next call. A call takes the thread that got it, and a new one is made when fewer than the
    // least number still wait; a thread that finds as many waiting as there may be ends. So only few of many may stay
    // away: with a least number equal to the most a thread is made for every call, with gRPC's most of two for every
    // thirtieth of eight clients.
    constexpr int k_max_pollers = 16;
    // Every running call has a thread. Calls beyond that end with RESOURCE_EXHAUSTED.
    constexpr int k_max_threads = 256;
    constexpr int k_max_streams = 128;  // of one connection; what is beyond waits in its client
    constexpr int k_max_metadata_size = 16 * 1024;
    // A peer that has not said what it wants by then, and one that is gone without a word.
    constexpr int k_handshake_ms = 10'000;
    constexpr int k_keepalive_ms = 60'000, k_keepalive_answer_ms = 20'000;
    builder.SetMaxReceiveMessageSize(base::k_max_grpc_request_size);
    builder.SetSyncServerOption(option::MAX_POLLERS, k_max_pollers);
    builder.SetResourceQuota(grpc::ResourceQuota("nyx-agent").SetMaxThreads(k_max_threads));
    builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, k_max_streams);
    builder.AddChannelArgument(GRPC_ARG_MAX_METADATA_SIZE, k_max_metadata_size);
    builder.AddChannelArgument(GRPC_ARG_SERVER_HANDSHAKE_TIMEOUT_MS, k_handshake_ms);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, k_keepalive_ms);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, k_keepalive_answer_ms);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
}

}  // namespace host
