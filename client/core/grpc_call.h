// One unary gRPC call to the agent.

#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <memory>

#include "client/core/options.h"
#include "client/core/outcome.h"

namespace grpc {
class Channel;
class Status;
}  // namespace grpc

namespace nyxctl {

// Sets `channel` to a channel to the agent that connects when it is used first. Failures: usage (an address without
// port), local (a TLS file).
outcome_s grpc_channel(const global_options_s &options, std::shared_ptr<grpc::Channel> *channel);

// Sets `channel` to one that is connected, for calls of the method. Failures: those of grpc_call() before it sends.
outcome_s connected_channel(const global_options_s &options, const google::protobuf::MethodDescriptor *method,
                            std::shared_ptr<grpc::Channel> *channel);

// How a call over such a channel failed.
outcome_s call_failure(const global_options_s &options, const google::protobuf::MethodDescriptor *method,
                       const grpc::Status &status);

// Connects, calls and waits, at most for the timeout; a refused connection fails at once. `request` and
// `response` are of the method's types. `response` is set only on success. Failures: usage (a streaming
// method, an address without port), local (a TLS file), unreachable (nobody listens, or not an agent, or one that
// never answered; nothing was sent), deadline, and NYXCTL_EXIT_GRPC_BASE plus the number of any other gRPC status.
// Success says nothing about api_status.
outcome_s grpc_call(const global_options_s &options, const google::protobuf::MethodDescriptor *method,
                    const google::protobuf::Message &request, google::protobuf::Message *response);

// The same, and a response whose api_status is not API_STATUS_OK is a failure too: its text names the method and the
// status, and `response` is set.
outcome_s checked_call(const global_options_s &options, const google::protobuf::MethodDescriptor *method,
                       const google::protobuf::Message &request, google::protobuf::Message *response);

}  // namespace nyxctl
