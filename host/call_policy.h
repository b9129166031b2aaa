// Who may call what, and the record of what they did.

#pragma once

#include <spdlog/logger.h>

#include <memory>
#include <string>
#include <vector>

#include "nyx/types/options.pb.h"
#include "svc/call_hooks.h"

namespace host {

// Names of certificates (common name, or an alternative name of the subject) that have a role. Without any, all clients
// whose certificates are accepted have all roles.
struct certificate_roles_s {
    std::vector<std::string> operate, rehearse;
};

// Everybody who may connect may read. Beyond that, roles come with the connection, whose transport tells how it was
// accepted (host/credentials.h): local: all roles; insecure: all over TCP, none over a Unix socket; TLS: those of the
// certificate. Any thread.
class call_policy final : public svc::call_observer {
 public:
    // Without `audit` nothing is recorded.
    call_policy(certificate_roles_s certificates, std::shared_ptr<spdlog::logger> audit);

    // PERMISSION_DENIED when the client lacks the role of the method.
    grpc::Status admit(const google::protobuf::MethodDescriptor &method,
                       const grpc::ServerContext &context) override;

    // Records calls that change something, and refused ones.
    void finished(const svc::call_facts_s &call) noexcept override;

 private:
    bool has_role(types::Role role, const grpc::ServerContext &context) const;

    const certificate_roles_s certificates_;
    const std::shared_ptr<spdlog::logger> audit_;
};

}  // namespace host
