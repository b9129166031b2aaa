// The agent's gRPC server: all services, reflection and health.

#pragma once

#include <grpcpp/server.h>
#include <poll.h>
#include <spdlog/logger.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/agent_service.h"
#include "host/call_policy.h"
#include "host/credentials.h"
#include "host/listener.h"
#include "host/options.h"
#include "svc/call_server.h"

namespace google::protobuf {
class ServiceDescriptor;
}

namespace grpc {
class ServerBuilder;
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
class grpc_server {
 public:
    // Records connections that may change something, and changes, to `audit` if given. Throws setup_error.
    explicit grpc_server(const options_s &options, std::shared_ptr<spdlog::logger> audit = nullptr);

    ~grpc_server();

    // Takes no more clients, and closes all connections after half a second: clients get UNAVAILABLE for calls that still
    // run then. It may never return: gRPC can't let
    // go of a client that does not read its response. Does nothing when called again.
    void stop();

    // Where clients find it, the read-only socket left out: several are separated by commas.
    std::string address() const;

    // Reads the files of certificates again. Throws setup_error, and then keeps the old ones.
    void reload_certificates();

    // Clients see that the agent has started anew. Any thread.
    void renew_instance();

 private:
    struct entrance_s {
        listener_s listener;
        bool may_change;  // some of its clients have more roles than to read
        std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor> acceptor;
    };
    void open_entrances(const options_s &options, grpc::ServerBuilder *builder);
    void add_entrance(listener_s listener, bool may_change,
                      std::shared_ptr<grpc::ServerCredentials> credentials, grpc::ServerBuilder *builder);
    void accept_until_stopped();
    void accept_one(entrance_s *entrance, base::accept_reserve *reserve);
    void record(const entrance_s &entrance, int fd) const;
    bool wait(std::vector<pollfd> *waiting, bool for_clients, int timeout_ms) const;

    agent_instance instance_;
    connection_counts_s counts_;
    const std::shared_ptr<spdlog::logger> audit_;
    call_policy policy_;
    std::optional<certificates> certificates_;
    base::unique_fd stop_;
    svc::call_server calls_;  // before the services, which it serves
    std::vector<std::unique_ptr<grpc::Service>> services_;
    const std::vector<const google::protobuf::ServiceDescriptor *> served_;
    std::vector<entrance_s> entrances_;
    std::unique_ptr<grpc::Server> server_;
    std::vector<std::jthread> workers_;
    std::unique_ptr<connections> open_;
    std::thread accept_thread_;
};

}  // namespace host
