// The servers that calls are measured with.

#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "svc/call_server.h"

namespace grpc {
class Server;
class Service;
}  // namespace grpc

namespace bench {

// A running gRPC server, in a process of its own. Kinds:
//   agent       the library's services that tables and walks need, with the settings of nyx-agent
//   agent-15000 the same, whose walks find 15,000 interfaces instead of 5,000
//   heap        the table service on gRPC's default handlers, with messages on the heap, and the same settings
//   empty       takes the messages of the table service and does nothing, with the same settings
//   defaults    the same with gRPC's own settings
//   serialised  answers InterfaceGet with the bytes that the agent would send, made beforehand
class grpc_server {
 public:
    grpc_server(const std::string &kind, const std::string &address);
    ~grpc_server();

    // "ready", "cpu_s" (of the process), "threads" (ever started), "resident_mib", "peak_mib" (since "forget_peak").
    double figure(const std::string &name);

 private:
    std::unique_ptr<svc::call_server> calls_;  // of an agent's services
    std::vector<std::unique_ptr<grpc::Service>> services_;
    std::unique_ptr<grpc::Server> server_;
    std::vector<std::jthread> workers_;
};

}  // namespace bench
