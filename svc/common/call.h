// One call of a gRPC method, from any service and on any thread.
//
//     grpc::Status PortSvcImpl::PortGet(grpc::ServerContext *context, const Request *req, Response *rsp) {
//         return svc::call(context, req, rsp, nyx_svc_port_get);
//     }
//
// Every method goes through call(): the bounds that hold for all methods have their place here.

#pragma once

#include <google/protobuf/message.h>
#include <grpcpp/server_context.h>

#include <concepts>
#include <cstddef>
#include <functional>

namespace svc {

// Elements of a request's lists together. 131,072 keys of the largest table take 14 MB; a card has some thousands of
// objects, and what is read of one is hundreds of times as long as its id.
inline constexpr size_t k_max_table_entries = 131'072, k_max_objects = 10'000;

// Whether the client of the call that runs on this thread has cancelled it, or its deadline has passed. Asked between
// the entries of a request; asks gRPC at most every 10 ms. False outside of call().
bool client_has_left();

// Checks the size of the request, runs `work`, checks the size of the response. Ends with
//   what `work` returns
//   RESOURCE_EXHAUSTED  the request has more than `max_entries` elements, and nothing was done; or the response is above
//                       protobuf's limit of 2 GiB, which gRPC would end the process for; or memory ran out
grpc::Status run_call(grpc::ServerContext *context, const google::protobuf::Message *request,
                      google::protobuf::Message *response, size_t max_entries,
                      const std::function<grpc::Status()> &work);

// `work` takes the request and the response, or nothing. It returns a grpc::Status, or anything else for OK: the outcome
// of an operation is in its response. A direct call may leave out
// `context` and the request.
template <size_t max_entries = k_max_objects, class Request, class Response, class Work>
grpc::Status call(grpc::ServerContext *context, const Request *req, Response *rsp, Work work) {
    const auto invoke = [&] {
        if constexpr (std::invocable<Work, const Request *, Response *>) {
            return work(req, rsp);
        } else {
            return work();
        }
    };
    return run_call(context, req, rsp, max_entries, [&invoke]() -> grpc::Status {
        if constexpr (std::same_as<decltype(invoke()), grpc::Status>) {
            return invoke();
        } else {
            (void)invoke();
            return grpc::Status::OK;
        }
    });
}

}  // namespace svc
