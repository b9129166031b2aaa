// gRPC reflection, which describes the services to clients that have no .proto file.

#pragma once

#include <grpcpp/impl/service_type.h>

#include <memory>
#include <string>
#include <vector>

namespace host {

// Lists these services, and describes all messages of the process. An open stream takes no thread, unlike with gRPC's own
// plugin. At most 64 streams are open: a further one ends the oldest. A request may have 4 KiB.
std::unique_ptr<grpc::Service> make_reflection_service(std::vector<std::string> services);

}  // namespace host
