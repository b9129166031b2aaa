#include "client/core/grpc_call.h"

#include <grpc/grpc.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/impl/codegen/proto_utils.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string_view>

#include "client/core/status_fields.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using system_time_t = std::chrono::system_clock::time_point;
using stub_t = grpc::TemplatedGenericStub<pb::Message, pb::Message>;

constexpr std::array<std::string_view, 17> k_status_names = {
    "OK",        "CANCELLED",       "UNKNOWN",           "INVALID_ARGUMENT",   "DEADLINE_EXCEEDED",
    "NOT_FOUND", "ALREADY_EXISTS",  "PERMISSION_DENIED", "RESOURCE_EXHAUSTED", "FAILED_PRECONDITION",
    "ABORTED",   "OUT_OF_RANGE",    "UNIMPLEMENTED",     "INTERNAL",           "UNAVAILABLE",
    "DATA_LOSS", "UNAUTHENTICATED",
};

std::string status_name(int code) {
    const bool known = code >= 0 && code < static_cast<int>(k_status_names.size());
    return std::string(known ? k_status_names[code] : "gRPC status") + " (" + std::to_string(code) + ")";
}

// gRPC itself would answer bad files with a connection that fails for no stated reason.
outcome_s read_pem(const std::string &path, const std::string &kind, std::string *pem) {
    if (path.empty()) {
        return {};
    }
    outcome_s outcome = read_file(path, pem);
    if (outcome.ok() && pem->find(kind + "-----") == std::string::npos) {
        return local_failure("\"" + path + "\" holds no " + kind + " in PEM format");
    }
    return outcome;
}

outcome_s tls_options(const global_options_s &options, grpc::SslCredentialsOptions *tls) {
    outcome_s outcome = read_pem(options.tls_ca, "CERTIFICATE", &tls->pem_root_certs);
    if (outcome.ok()) {
        outcome = read_pem(options.tls_cert, "CERTIFICATE", &tls->pem_cert_chain);
    }
    return outcome.ok() ? read_pem(options.tls_key, "PRIVATE KEY", &tls->pem_private_key) : outcome;
}

// gRPC would take port 443 where there is none, and the low 16 bits of one that is too large.
bool ends_with_port(const std::string &address) {
    const size_t colon = address.rfind(':');
    if (colon == std::string::npos) {
        return false;
    }
    uint16_t port = 0;
    const char *end = address.data() + address.size();
    const auto parsed = std::from_chars(address.data() + colon + 1, end, port);
    return parsed.ec == std::errc() && parsed.ptr == end && port > 0;
}

outcome_s make_channel(const global_options_s &options, std::shared_ptr<grpc::Channel> *channel) {
    if (!options.grpc.starts_with("unix:") && !ends_with_port(options.grpc)) {
        return usage_failure("--grpc \"" + options.grpc +
                             "\" has no port from 1 to 65535; give HOST:PORT or unix:PATH");
    }
    auto credentials = grpc::InsecureChannelCredentials();
    if (!options.tls_ca.empty()) {
        grpc::SslCredentialsOptions tls;
        if (outcome_s outcome = tls_options(options, &tls); !outcome.ok()) {
            return outcome;
        }
        credentials = grpc::SslCredentials(tls);
    }
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(-1);
    // An agent is spoken to directly, whatever http_proxy says.
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    arguments.SetInt(GRPC_ARG_SERVICE_CONFIG_DISABLE_RESOLUTION, 1);
    *channel = grpc::CreateCustomChannel(options.grpc, credentials, arguments);
    return {};
}

std::string timeout_text(const global_options_s &options) {
    std::ostringstream text;
    text << options.timeout_seconds << " s";
    return text.str();
}

std::string address_hint(const global_options_s &options) {
    return options.tls_ca.empty() ? "check that the agent runs there, that --grpc or NYX_GRPC is right, and "
                                    "whether it wants TLS (--tls-ca)"
                                  : "check that the agent runs there, that --grpc or NYX_GRPC is right, and "
                                    "that it uses TLS with these certificates";
}

outcome_s unreachable(const global_options_s &options, const std::string &path, const std::string &why) {
    return {NYXCTL_EXIT_UNREACHABLE,
            path + ": no agent reachable at " + options.grpc + ": " + why + "; " + address_hint(options)};
}

outcome_s failure(const global_options_s &options, const std::string &path, const grpc::Status &status,
                  bool connected) {
    const std::string message = status.error_message().empty() ? "no text given" : status.error_message();
    if (status.error_code() == grpc::StatusCode::UNAVAILABLE && !connected) {
        return unreachable(options, path, message);
    }
    if (status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED) {
        return {NYXCTL_EXIT_DEADLINE, path + ": no answer from " + options.grpc + " within " +
                                          timeout_text(options) + "; raise --timeout"};
    }
    if (status.error_code() == grpc::StatusCode::UNAVAILABLE) {
        return {NYXCTL_EXIT_GRPC_BASE + static_cast<int>(status.error_code()),
                path + ": the connection to " + options.grpc + " was lost: " + message +
                    "; the agent may have carried the request out, in part or in full"};
    }
    return {NYXCTL_EXIT_GRPC_BASE + static_cast<int>(status.error_code()),
            path + ": " + status_name(status.error_code()) + " from " + options.grpc + ": " + message};
}

grpc::Status call_and_wait(const std::shared_ptr<grpc::Channel> &channel, const std::string &path,
                           system_time_t deadline, const pb::Message &request, pb::Message *response) {
    grpc::ClientContext context;
    context.set_deadline(deadline);
    grpc::CompletionQueue queue;
    stub_t stub(channel);
    const auto call = stub.PrepareUnaryCall(&context, "/" + path, request, &queue);
    grpc::Status status;
    call->StartCall();
    call->Finish(response, &status, nullptr);
    void *tag = nullptr;
    bool finished = false;
    queue.Next(&tag, &finished);
    return status;
}

// Ready; or in failure after the first attempt that failed, when the call itself fails at once and tells why; or still
// connecting at the deadline.
grpc_connectivity_state wait_until_connected(grpc::Channel *channel, system_time_t deadline) {
    for (;;) {
        const grpc_connectivity_state state = channel->GetState(true);
        if (state == GRPC_CHANNEL_READY || state == GRPC_CHANNEL_TRANSIENT_FAILURE ||
            !channel->WaitForStateChange(state, deadline)) {
            return state;
        }
    }
}

}  // namespace

outcome_s grpc_channel(const global_options_s &options, std::shared_ptr<grpc::Channel> *channel) {
    // The library's own lines on stderr say again, and at length, what the status says.
    setenv("GRPC_VERBOSITY", "NONE", 0);
    // Taken and never given back: shutting the library down can take ten seconds after a large request.
    grpc_init();
    return make_channel(options, channel);
}

outcome_s grpc_call(const global_options_s &options, const pb::MethodDescriptor *method,
                    const pb::Message &request, pb::Message *response) {
    const std::string path = method_path(method);
    if (method->client_streaming() || method->server_streaming()) {
        return usage_failure(
            path + " is a streaming method; nyxctl calls methods with one request and one response");
    }
    std::shared_ptr<grpc::Channel> channel;
    if (outcome_s outcome = grpc_channel(options, &channel); !outcome.ok()) {
        return outcome;
    }
    const system_time_t deadline = std::chrono::system_clock::now() + options.timeout();
    const auto state = wait_until_connected(channel.get(), deadline);
    if (state != GRPC_CHANNEL_READY && state != GRPC_CHANNEL_TRANSIENT_FAILURE) {
        return unreachable(options, path, "no connection within " + timeout_text(options));
    }
    const grpc::Status status = call_and_wait(channel, path, deadline, request, response);
    return status.ok() ? outcome_s() : failure(options, path, status, state == GRPC_CHANNEL_READY);
}

outcome_s checked_call(const global_options_s &options, const pb::MethodDescriptor *method,
                       const pb::Message &request, pb::Message *response) {
    outcome_s outcome = grpc_call(options, method, request, response);
    const auto failed = outcome.ok() ? failed_api_status(*response) : std::nullopt;
    return failed ? outcome_s{NYXCTL_EXIT_API_STATUS, method_path(method) + ": " + *failed} : outcome;
}

}  // namespace nyxctl
