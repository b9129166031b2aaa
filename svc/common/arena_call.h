// Unary calls with request and response in one arena: memory comes in a few pieces and goes at once, instead of message
// by message. With many entries that is a third of all the work.
//
// A service that wants it for a method says so in its constructor, by what grpc::Service offers to derived classes:
//
//     MarkMethodCallback(svc::method_index("nyx.IfSvc.InterfaceGet"), svc::in_arena<nyx_svc_interface_get>());
//
// Clients are then served by the operation itself, and the virtual method is for direct calls. It runs on one of gRPC's
// callback threads, of which there are half as many as cores, at least two and at most 16: an operation that waits for
// something holds up others, and is better left with the virtual method, on a thread of its own.

#pragma once

#include <google/protobuf/message_lite.h>
#include <grpcpp/support/status.h>

#include <string>

namespace grpc::internal {
class MethodHandler;
}

namespace svc {

// What a method does, in terms that are the same for all.
struct unary_method_s {
    const google::protobuf::MessageLite *request, *response;  // the default instances of their types
    void (*run)(const google::protobuf::MessageLite &request, google::protobuf::MessageLite *response);
};

template <auto operation, class Result, class Request, class Response>
unary_method_s unary_method_of(Result (*)(const Request *, Response *)) {
    using google::protobuf::MessageLite;
    return {&Request::default_instance(), &Response::default_instance(),
            [](const MessageLite &request, MessageLite *response) {
                (void)operation(static_cast<const Request *>(&request), static_cast<Response *>(response));
            }};
}

// The method's place in its service, by its full name.
int method_index(const std::string &full_name);

// A handler for the service to own. Its calls end with gRPC status OK, but for a request that can't be parsed
// (INTERNAL), memory that runs out (UNKNOWN) and what status_of() says.
grpc::internal::MethodHandler *make_arena_handler(const unary_method_s &method);

// `operation` is a function of (const Request *, Response *): what it returns is in the response too.
template <auto operation>
grpc::internal::MethodHandler *in_arena() {
    return make_arena_handler(unary_method_of<operation>(operation));
}

// OK, or RESOURCE_EXHAUSTED for a response above protobuf's 2 GiB: gRPC ends the process when it is to send one.
grpc::Status status_of(const google::protobuf::MessageLite &response);

}  // namespace svc
