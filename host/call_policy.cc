#include "host/call_policy.h"

#include <grpc/grpc_security_constants.h>
#include <grpcpp/security/auth_context.h>

#include <algorithm>
#include <string_view>

#include "host/audit.h"

namespace host {

namespace {

types::Role role_of(const google::protobuf::MethodDescriptor &method) {
    return method.options().GetExtension(types::role);
}

// "operate"
std::string name_of(types::Role role) {
    std::string name = types::Role_Name(role).substr(std::string_view("ROLE_").size());
    std::ranges::transform(name, name.begin(), [](char c) { return static_cast<char>(c | 0x20); });
    return name;
}

std::vector<std::string> properties(const grpc::ServerContext &context, const char *name) {
    std::vector<std::string> values;
    for (const auto &value : context.auth_context()->FindPropertyValues(name)) {
        values.emplace_back(value.data(), value.size());
    }
    return values;
}

bool is_transport(const grpc::ServerContext &context, std::string_view type) {
    const auto types = properties(context, GRPC_TRANSPORT_SECURITY_TYPE_PROPERTY_NAME);
    return types.size() == 1 && types.front() == type;
}

// A call that the agent makes of itself, within the process: no connection, and so no credentials.
bool is_own(const grpc::ServerContext &context) {
    return context.peer() == "unknown" &&
           properties(context, GRPC_TRANSPORT_SECURITY_TYPE_PROPERTY_NAME).empty();
}

bool is_unix(const grpc::ServerContext &context) { return context.peer().starts_with("unix"); }

bool has_name_among(const grpc::ServerContext &context, const std::vector<std::string> &names) {
    const auto is_listed = [&names](const std::string &name) {
        return std::ranges::find(names, name) != names.end();
    };
    return std::ranges::any_of(properties(context, GRPC_X509_CN_PROPERTY_NAME), is_listed) ||
           std::ranges::any_of(properties(context, GRPC_X509_SAN_PROPERTY_NAME), is_listed);
}

// "unix", or the address, after the name of the certificate if there is one.
std::string client_of(const grpc::ServerContext &context) {
    if (is_unix(context)) {
        return "unix";
    }
    const auto names = properties(context, GRPC_X509_CN_PROPERTY_NAME);
    return names.empty() ? context.peer() : names.front() + "@" + context.peer();
}

}  // namespace

call_policy::call_policy(certificate_roles_s certificates, std::shared_ptr<spdlog::logger> audit)
    : certificates_(std::move(certificates)), audit_(std::move(audit)) {}

grpc::Status call_policy::admit(const google::protobuf::MethodDescriptor &method,
                                const grpc::ServerContext &context) {
    const auto role = role_of(method);
    if (role == types::ROLE_READ || has_role(role, context)) {
        return grpc::Status::OK;
    }
    return {grpc::PERMISSION_DENIED, method.full_name() + " needs the role " + name_of(role) +
                                         ", which this connection does not have"};
}

bool call_policy::has_role(types::Role role, const grpc::ServerContext &context) const {
    if (role == types::ROLE_NONE) {
        return false;
    }
    if (is_transport(context, "local")) {
        return true;
    }
    if (is_transport(context, GRPC_SSL_TRANSPORT_SECURITY_TYPE)) {
        const bool is_mapped = !certificates_.operate.empty() || !certificates_.rehearse.empty();
        const auto &names = role == types::ROLE_OPERATE ? certificates_.operate : certificates_.rehearse;
        return !is_mapped || has_name_among(context, names);
    }
    return is_transport(context, "insecure") && !is_unix(context);
}

void call_policy::finished(const svc::call_facts_s &call) noexcept {
    const auto role = role_of(*call.method);
    if (!audit_ || role == types::ROLE_READ || is_own(*call.context)) {
        return;
    }
    try {
        const bool refused = call.status.error_code() == grpc::PERMISSION_DENIED;
        audit_->log(refused ? spdlog::level::warn : spdlog::level::info,
                    audit_line(call, name_of(role), client_of(*call.context)));
    } catch (...) {
        // The line is lost, the service goes on.
    }
}

}  // namespace host
