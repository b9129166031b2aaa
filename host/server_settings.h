// Settings of the agent's gRPC server.

#pragma once

#include <grpcpp/resource_quota.h>
#include <grpcpp/server_builder.h>

#include "base/request_limits.h"

namespace host {

inline void apply_server_settings(grpc::ServerBuilder &builder) {
    using option = grpc::ServerBuilder::SyncServerOption;
    // Threads that wait for a call. The one that gets it comes back when it is done, and ends if as many wait already.
    // With gRPC's most of two, one had to be started for every thirtieth call of eight clients. The least number stays
    // gRPC's one: whenever fewer wait than that, one is started, with 16 of 16 for every call.
    constexpr int k_max_pollers = 16;
    // Running calls have a thread each, but for those served by callbacks. Calls beyond that end with RESOURCE_EXHAUSTED.
    constexpr int k_max_threads = 256;
    constexpr int k_max_streams = 128;  // of one connection; what is beyond waits in its client
    constexpr int k_max_metadata_size = 16 * 1024;
    // A peer that has not said what it wants by then, and one that is gone without a word.
    constexpr int k_handshake_ms = 10'000;
    constexpr int k_keepalive_ms = 60'000, k_keepalive_answer_ms = 20'000;
    // Clients in other languages ping every ten seconds at most, also without a call. Who pings more often is told to stop,
    // and disconnected.
    constexpr int k_ping_ms = 5'000;
    builder.SetMaxReceiveMessageSize(base::k_max_grpc_request_size);
    builder.SetSyncServerOption(option::MAX_POLLERS, k_max_pollers);
    builder.SetResourceQuota(grpc::ResourceQuota("nyx-agent").SetMaxThreads(k_max_threads));
    builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, k_max_streams);
    builder.AddChannelArgument(GRPC_ARG_MAX_METADATA_SIZE, k_max_metadata_size);
    builder.AddChannelArgument(GRPC_ARG_SERVER_HANDSHAKE_TIMEOUT_MS, k_handshake_ms);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, k_keepalive_ms);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, k_keepalive_answer_ms);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, k_ping_ms);
}

}  // namespace host
