// Serves the library's services on threads that the agent lends, with bounded memory.
//
// Without one, the service objects are plain synchronous services: each call runs on one of the gRPC server's threads, as
// many at once as that server allows. With one, no thread of gRPC runs an operation or waits for a client to read:
//
//     svc::call_server calls({.memory = 256 << 20});       // before the services
//     PortSvcImpl ports;                                   // ... all of them
//     grpc::ServerBuilder builder;
//     builder.RegisterService(&ports);
//     calls.attach(&builder);
//     auto server = builder.BuildAndStart();
//     std::vector<std::jthread> workers;                   // 16 or more
//     workers.emplace_back([&] { calls.run(); });
//     ...
//     server->Shutdown(deadline);
//     calls.shutdown();                                    // run() returns
//
// Messages of a call live in an arena, which makes large requests a third faster. What does not fit into the budget is
// refused with RESOURCE_EXHAUSTED.

#pragma once

#include <grpcpp/server_builder.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <vector>

#include "svc/call_hooks.h"

namespace svc {

struct call_limits_s {
    // Bytes of all requests that run and of all answers that wait for their clients. Answers take at most half of it: beyond
    // that, the largest one that waits is cancelled.
    size_t memory = 256 * 1024 * 1024;
    // Calls of one method that run at once; others wait in the gRPC server. Fewer than there are workers, so that one
    // slow operation can't take them all.
    unsigned calls_of_a_method = 16;
    // An answer that its client does not take within this time is cancelled.
    std::chrono::seconds send_time{20};
};

// One in a process at a time. run() may be called on any threads, all else on one.
class call_server {
 public:
    explicit call_server(const call_limits_s &limits = {});
    call_server(const call_limits_s &limits, const call_host_s &host);
    ~call_server();  // after shutdown(), and after run() has returned everywhere
    call_server(const call_server &) = delete;
    call_server &operator=(const call_server &) = delete;

    // Once, before BuildAndStart().
    void attach(grpc::ServerBuilder *builder);

    // Serves calls until shutdown(). Throws nothing.
    void run();

    // After grpc::Server::Shutdown() has returned. Waits for operations that still run.
    void shutdown();

    // Changes the instance id, from the responses on that are sent after this. For an agent that loses its state without
    // ending. Any thread.
    void set_instance_id(const std::string &id);

    // What calls came to so far: each method, in the order in which services were made. Any thread, once attached.
    std::vector<method_counts_s> counts() const;
    call_memory_s memory() const;

    class state;

 private:
    std::unique_ptr<state> state_;
};

}  // namespace svc
