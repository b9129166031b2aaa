// The agent's gRPC server: all services, reflection and health.

#pragma once

#include <grpcpp/server.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/agent_service.h"
#include "host/listener.h"
#include "host/options.h"
#include "svc/call_server.h"

namespace google::protobuf {
class ServiceDescriptor;
}

namespace grpc {
class Service;
namespace experimental {
class ExternalConnectionAcceptor;
}
}  // namespace grpc

namespace base {
class accept_reserve;
}

namespace host {

class connections;

// Serves from construction to destruction. Clients are accepted by a loop of its own, because gRPC's listener
// never accepts again once the process was out of descriptors. Owned by one thread.
class grpc_door {
 public:
    // Throws setup_error.
    explicit grpc_door(const options_s &options);

    ~grpc_door();

    // Takes no more clients and ends calls that still run after half a second. It may never return: gRPC can't let
    // go of a client that does not read its response. Does nothing when called again.
    void stop();

    const std::string &address() const { return listener_.address; }

    // Clients see that the agent has started anew. Any thread.
    void renew_instance();

 private:
    struct waited_s;
    void accept_until_stopped();
    void accept_one(base::accept_reserve *reserve, connections *open);
    waited_s wait(bool for_clients, int or_fd, int timeout_ms) const;

    agent_instance instance_;
    connection_counts_s counts_;
    listener_s listener_;
    base::unique_fd stop_;
    svc::call_server calls_;  // before the services, which it serves
    std::vector<std::unique_ptr<grpc::Service>> services_;
    const std::vector<const google::protobuf::ServiceDescriptor *> served_;
    std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor> acceptor_;
    std::unique_ptr<grpc::Server> server_;
    std::vector<std::jthread> workers_;
    std::thread accept_thread_;
};

}  // namespace host
