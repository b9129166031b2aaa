// The servers that calls are measured with.

#pragma once

#include <memory>
#include <string>

namespace grpc {
class Server;
class Service;
}  // namespace grpc

namespace bench {

// A running gRPC server with the settings of the agent's.
class grpc_server {
 public:
    // `service`: "table" for the table service, "empty" for one that takes the same messages and does
    // nothing.
    grpc_server(const std::string &service, const std::string &address);
    ~grpc_server();

 private:
    std::unique_ptr<grpc::Service> service_;
    std::unique_ptr<grpc::Server> server_;
};

}  // namespace bench
