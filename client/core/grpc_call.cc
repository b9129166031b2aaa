#include "client/core/grpc_call.h"

#include <fmt/format.h>
#include <grpc/grpc.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/impl/codegen/proto_utils.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "client/core/connect.h"
#include "client/core/fields.h"
#include "client/core/status_fields.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using system_time_t = std::chrono::system_clock::time_point;
using stub_t = grpc::TemplatedGenericStub<pb::Message, pb::Message>;

constexpr int k_attempts = 3;
constexpr std::chrono::milliseconds k_patience(200);  // at least, to see whether anybody listens

constexpr std::array<std::string_view, 17> k_status_names = {
    "OK",        "CANCELLED",       "UNKNOWN",           "INVALID_ARGUMENT",   "DEADLINE_EXCEEDED",
    "NOT_FOUND", "ALREADY_EXISTS",  "PERMISSION_DENIED", "RESOURCE_EXHAUSTED", "FAILED_PRECONDITION",
    "ABORTED",   "OUT_OF_RANGE",    "UNIMPLEMENTED",     "INTERNAL",           "UNAVAILABLE",
    "DATA_LOSS", "UNAUTHENTICATED",
};

std::string status_name(size_t code) {
    return fmt::format("{} ({})", code < k_status_names.size() ? k_status_names[code] : "gRPC status", code);
}

// With bad files, gRPC itself only reports a connection that failed, without the reason.
outcome_s read_pem(const std::string &path, const std::string &kind, std::string *pem) {
    if (path.empty()) {
        return {};
    }
    outcome_s outcome = read_file(path, pem);
    if (outcome.ok() && pem->find(kind + "-----") == std::string::npos) {
        return local_failure(fmt::format("\"{}\" has no {} in PEM format", path, kind));
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

outcome_s make_channel(const global_options_s &options, std::shared_ptr<grpc::Channel> *channel) {
    // gRPC would use port 443 for an address without one, and the low 16 bits of one that is too large.
    std::string host;
    std::string port;
    if (!options.grpc.starts_with("unix:") && !split_host_port(options.grpc, &host, &port)) {
        return usage_failure(fmt::format(
            "--grpc \"{}\" has no port from 1 to 65535; give HOST:PORT or unix:PATH", options.grpc));
    }
    auto credentials = grpc::InsecureChannelCredentials();
    // The file of a Unix socket guards it, so that variables for TLS may stay set.
    if (!options.tls_ca.empty() && !options.grpc.starts_with("unix:")) {
        grpc::SslCredentialsOptions tls;
        if (outcome_s outcome = tls_options(options, &tls); !outcome.ok()) {
            return outcome;
        }
        credentials = grpc::SslCredentials(tls);
    }
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(-1);
    // Agents are reached directly, whatever http_proxy says.
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    arguments.SetInt(GRPC_ARG_SERVICE_CONFIG_DISABLE_RESOLUTION, 1);
    // A second channel must not wait for the next attempt of the first.
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    *channel = grpc::CreateCustomChannel(options.grpc, credentials, arguments);
    return {};
}

outcome_s unreachable(const global_options_s &options, const std::string &path, const std::string &why) {
    return {
        NYXCTL_EXIT_UNREACHABLE,
        fmt::format(
            "{}: no agent reachable at {}: {}; check that the agent runs there and that --grpc or NYX_GRPC "
            "is right",
            path, options.grpc, why)};
}

outcome_s silent(const global_options_s &options, const std::string &path) {
    return {
        NYXCTL_EXIT_UNREACHABLE,
        fmt::format(
            "{}: the agent at {} accepted the connection but did not answer within {} s; raise --timeout, "
            "or see whether it is stopped",
            path, options.grpc, options.timeout_seconds)};
}

// Something listens, but this failed before both sides had agreed on gRPC.
outcome_s no_agent(const global_options_s &options, const std::string &path, const std::string &why) {
    const char *hint = options.tls_ca.empty()
                           ? "check whether it is an agent, and whether it wants TLS (--tls-ca)"
                           : "check whether it is an agent that uses TLS with these certificates";
    return {NYXCTL_EXIT_UNREACHABLE,
            fmt::format("{}: {} accepts connections, but not gRPC: {}; {}", path, options.grpc, why, hint)};
}

outcome_s failure(const global_options_s &options, const std::string &path, const grpc::Status &status,
                  bool connected) {
    const int code = NYXCTL_EXIT_GRPC_BASE + static_cast<int>(status.error_code());
    const std::string message = status.error_message().empty() ? "no text given" : status.error_message();
    if (status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED) {
        return {NYXCTL_EXIT_DEADLINE, fmt::format("{}: no answer from {} within {} s; raise --timeout", path,
                                                  options.grpc, options.timeout_seconds)};
    }
    if (status.error_code() != grpc::StatusCode::UNAVAILABLE) {
        return {code, fmt::format("{}: {} from {}: {}", path, status_name(status.error_code()), options.grpc,
                                  message)};
    }
    return connected
               ? outcome_s{code,
                           fmt::format("{}: the connection to {} was lost: {}; the agent may have carried "
                                       "the request out, in part or in full",
                                       path, options.grpc, message)}
               : no_agent(options, path, message);
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

// READY, TRANSIENT_FAILURE after the first attempt that failed, or CONNECTING at the deadline.
grpc_connectivity_state wait_until_connected(grpc::Channel *channel, system_time_t deadline) {
    for (;;) {
        const grpc_connectivity_state state = channel->GetState(true);
        if (state == GRPC_CHANNEL_READY || state == GRPC_CHANNEL_TRANSIENT_FAILURE ||
            !channel->WaitForStateChange(state, deadline)) {
            return state;
        }
    }
}

// gRPC 1.51 looks at errno some steps after connect(). In between it may take a lock, and the first lock that has to
// wait looks into /sys for the number of CPUs, another one for their speed: without /sys a connection in progress is
// then reported as failed, with "No such file or directory". Each is looked for once in a process, so a third attempt
// can't fail that way. The reason for an unreachable agent comes
// from a connection without gRPC.
// Sets `ready` to whether both sides speak gRPC; if not, a call fails at once and says why.
outcome_s connect_channel(const global_options_s &options, const std::string &path, system_time_t deadline,
                          std::shared_ptr<grpc::Channel> *channel, bool *ready) {
    for (int attempt = 1;; attempt++) {
        if (outcome_s outcome = grpc_channel(options, channel); !outcome.ok()) {
            return outcome;
        }
        const auto state = wait_until_connected(channel->get(), deadline);
        *ready = state == GRPC_CHANNEL_READY;
        if (*ready) {
            return {};
        }
        const auto left = deadline - std::chrono::system_clock::now();
        const std::string why =
            unreachable_reason(options.grpc, std::chrono::steady_clock::now() +
                                                 std::max<system_time_t::duration>(left, k_patience));
        if (!why.empty()) {
            return unreachable(options, path, why);
        }
        if (state != GRPC_CHANNEL_TRANSIENT_FAILURE) {
            return silent(options, path);
        }
        if (attempt == k_attempts) {
            return {};
        }
    }
}

}  // namespace

outcome_s grpc_channel(const global_options_s &options, std::shared_ptr<grpc::Channel> *channel) {
    // The library's own lines on stderr repeat, at length, what the status says.
    setenv("GRPC_VERBOSITY", "NONE", 0);
    // Never released: shutting the library down can take ten seconds after a large request.
    grpc_init();
    return make_channel(options, channel);
}

outcome_s grpc_call(const global_options_s &options, const pb::MethodDescriptor *method,
                    const pb::Message &request, pb::Message *response) {
    const std::string path = method_path(method);
    if (method->client_streaming() || method->server_streaming()) {
        return usage_failure(fmt::format(
            "{} is a streaming method; nyxctl calls methods with one request and one response", path));
    }
    std::shared_ptr<grpc::Channel> channel;
    bool ready = false;
    const system_time_t deadline = std::chrono::system_clock::now() + options.timeout();
    if (outcome_s outcome = connect_channel(options, path, deadline, &channel, &ready); !outcome.ok()) {
        return outcome;
    }
    const grpc::Status status = call_and_wait(channel, path, deadline, request, response);
    return status.ok() ? outcome_s() : failure(options, path, status, ready);
}

outcome_s connected_channel(const global_options_s &options, const pb::MethodDescriptor *method,
                            std::shared_ptr<grpc::Channel> *channel) {
    bool ready = false;
    const system_time_t deadline = std::chrono::system_clock::now() + options.timeout();
    const std::string path = method_path(method);
    outcome_s outcome = connect_channel(options, path, deadline, channel, &ready);
    if (!outcome.ok() || ready) {
        return outcome;
    }
    const auto request = new_message(method->input_type());  // only a call says why
    const auto response = new_message(method->output_type());
    return failure(options, path, call_and_wait(*channel, path, deadline, *request, response.get()), false);
}

outcome_s call_failure(const global_options_s &options, const pb::MethodDescriptor *method,
                       const grpc::Status &status) {
    return failure(options, method_path(method), status, true);
}

outcome_s checked_call(const global_options_s &options, const pb::MethodDescriptor *method,
                       const pb::Message &request, pb::Message *response) {
    outcome_s outcome = grpc_call(options, method, request, response);
    const auto failed = outcome.ok() ? failed_api_status(*response) : std::nullopt;
    return failed ? outcome_s{NYXCTL_EXIT_API_STATUS, fmt::format("{}: {}", method_path(method), *failed)}
                  : outcome;
}

}  // namespace nyxctl
