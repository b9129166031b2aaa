// What an agent may know of the calls that a call server runs, and decide about them.

#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <grpcpp/server_context.h>
#include <grpcpp/support/status.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

#include "nyx/types/status.pb.h"

namespace svc {

// A call that has run, or was refused.
struct call_facts_s {
    const google::protobuf::MethodDescriptor *method;
    const grpc::ServerContext *context;
    const google::protobuf::Message *request;  // null: it was refused before it was parsed
    grpc::Status status;
    types::ApiStatus api_status;  // of the response; where it has several, the first failure
    std::chrono::nanoseconds duration;
};

// Called on the threads that run calls, by several at once; it must not wait for anything.
class call_observer {
 public:
    virtual ~call_observer() = default;

    // Before the request is parsed. Another status than OK ends the call.
    virtual grpc::Status admit(const google::protobuf::MethodDescriptor &method,
                               const grpc::ServerContext &context) = 0;

    // After the operation, before its response is sent. The facts and what they point to end with the function.
    virtual void finished(const call_facts_s &facts) noexcept = 0;
};

// How an agent presents itself in a call server.
struct call_host_s {
    call_observer *observer = nullptr;  // outlives the call server
    std::string instance_id = {};       // initial metadata nyx-instance-id of each response; empty: none
};

// Upper bounds of durations, between which calls are counted.
using std::chrono_literals::operator""us, std::chrono_literals::operator""ms,
    std::chrono_literals::operator""s;
inline constexpr std::array<std::chrono::nanoseconds, 15> k_duration_bounds = {
    50us, 100us, 250us, 500us, 1ms, 2500us, 5ms, 10ms, 25ms, 50ms, 100ms, 250ms, 1s, 5s, 20s};

// The calls of one method so far.
struct method_counts_s {
    const google::protobuf::MethodDescriptor *method;
    std::array<uint64_t, grpc::UNAUTHENTICATED + 1> by_code;         // gRPC statuses
    std::array<uint64_t, types::ApiStatus_ARRAYSIZE> by_api_status;  // of those that ended with OK
    std::array<uint64_t, k_duration_bounds.size() + 1> by_duration;  // the last: longer than all bounds
    std::chrono::nanoseconds duration;                               // of all together
};

// Bytes of requests that run and of responses that wait for their clients.
struct call_memory_s {
    size_t used, limit;
};

}  // namespace svc
