#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <memory>
#include <vector>

#include "base/request_limits.h"
#include "client/cli/commands.h"
#include "client/cli/debug_command.h"
#include "client/core/debug_socket.h"
#include "client/core/grpc_call.h"
#include "client/core/rows.h"
#include "client/core/status_fields.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"
#include "grpc/health/v1/health.pb.h"

namespace nyxctl {
namespace {

using grpc::health::v1::HealthCheckRequest;
using grpc::health::v1::HealthCheckResponse;
using std::chrono::steady_clock;

constexpr int k_not_found = NYXCTL_EXIT_GRPC_BASE + 5;
constexpr int k_unimplemented = NYXCTL_EXIT_GRPC_BASE + 12;
constexpr char k_stand_in_service[] = "nyx.FaultSvc";

constexpr char k_footer[] = R"(Rows:
  grpc     whether a health check is answered, and after how many milliseconds,
           connecting included
  health   what grpc.health.v1.Health says of each service
  socket   whether the debug command help is answered, and after how many
           milliseconds
  version  this client's
  limit    the largest requests in bytes: what nyx-agent takes over gRPC, and
           what any agent reads from its socket
STATE is ok, info, unknown (the agent does not say), warning or unreachable.
--timeout is for all of them together.

Exit codes: 0 when nothing is warning or unreachable, 3 when the agent answers
at neither address, 1 otherwise; stderr names what is not well, its row has the
reason.

Examples:
  nyxctl status
  nyxctl status -j --timeout 2 && echo healthy)";

struct report_s {
    rows_s rows = {.subject = "status", .columns = {"check", "subject", "state", "ms", "detail"}, .rows = {}};
    std::vector<std::string> problems;  // what is not well, by name

    void add(const char *check, const std::string &subject, const char *state, value_s detail,
             value_s milliseconds = nullptr) {
        rows.rows.push_back({check, subject, state, std::move(milliseconds), std::move(detail)});
    }

    void warn(const char *check, const std::string &subject, const std::string &detail) {
        add(check, subject, "warning", detail);
        problems.push_back(std::string(check) + " " + subject);
    }
};

// How asking at one address of the agent ended, and how long that took.
struct answer_s {
    outcome_s outcome;
    double milliseconds = 0;

    bool answers() const {
        return outcome.exit_code != NYXCTL_EXIT_UNREACHABLE && outcome.exit_code != NYXCTL_EXIT_DEADLINE;
    }
};

template <class Ask>
answer_s timed(Ask ask) {
    const auto start = steady_clock::now();
    outcome_s outcome = ask();
    const std::chrono::duration<double, std::milli> taken = steady_clock::now() - start;
    return {std::move(outcome), std::round(taken.count() * 10) / 10};
}

// The options with what is left of the time.
global_options_s until(const global_options_s &global, deadline_t deadline) {
    constexpr double k_least_seconds = 0.001;
    global_options_s options = global;
    const std::chrono::duration<double> left = deadline - steady_clock::now();
    options.timeout_seconds = std::max(left.count(), k_least_seconds);
    return options;
}

outcome_s ask_health(const global_options_s &options, const std::string &service,
                     HealthCheckResponse *response) {
    const google::protobuf::MethodDescriptor *method = nullptr;
    if (outcome_s outcome = find_method("grpc.health.v1.Health.Check", &method); !outcome.ok()) {
        return outcome;
    }
    HealthCheckRequest request;
    request.set_service(service);
    return grpc_call(options, method, request, response);
}

// An agent without a health service answers, too.
outcome_s ask_grpc(const global_options_s &global) {
    HealthCheckResponse response;
    const outcome_s outcome = ask_health(global, "", &response);
    if (outcome.exit_code == k_unimplemented) {
        return {};
    }
    const bool serving = response.status() == HealthCheckResponse::SERVING;
    return outcome.ok() && !serving ? outcome_s{NYXCTL_EXIT_API_STATUS, "the agent is not serving"} : outcome;
}

outcome_s ask_socket(const global_options_s &global, deadline_t deadline) {
    types::ServiceRequestMessage request;
    base::unique_fd socket;
    const base::unique_fd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    outcome_s outcome = build_debug_request("help", {}, &request);
    if (outcome.ok()) {
        outcome = debug_connect(global.socket, deadline, &socket);
    }
    types::ServiceResponseMessage response;
    if (outcome.ok()) {
        outcome = debug_exchange(socket, request, nowhere.get(), deadline, &response);
    }
    if (outcome.ok() && response.api_status() != types::API_STATUS_OK) {
        return {NYXCTL_EXIT_API_STATUS, "the command help: " + api_status_text(response.api_status())};
    }
    return outcome;
}

void report_address(const char *check, const std::string &address, const answer_s &answer, report_s *report) {
    const char *state = answer.outcome.ok() ? "ok" : answer.answers() ? "warning" : "unreachable";
    report->add(check, address, state, answer.outcome.ok() ? "answers" : answer.outcome.text,
                answer.milliseconds);
    if (!answer.outcome.ok()) {
        report->problems.emplace_back(check);
    }
}

void report_health(const global_options_s &options, const std::string &service, report_s *report) {
    HealthCheckResponse response;
    const outcome_s outcome = ask_health(options, service, &response);
    if (outcome.exit_code == k_not_found && service == k_stand_in_service) {
        report->add("health", service, "info", "not served; nyx-agent --fault-service does");
    } else if (outcome.exit_code == k_not_found || outcome.exit_code == k_unimplemented) {
        report->add("health", service, "unknown", "the agent does not say");
    } else if (!outcome.ok()) {
        report->warn("health", service, outcome.text);
    } else if (response.status() != HealthCheckResponse::SERVING) {
        report->warn("health", service, HealthCheckResponse::ServingStatus_Name(response.status()));
    } else {
        report->add("health", service, "ok", "serving");
    }
}

void report_all_health(const global_options_s &global, deadline_t deadline, report_s *report) {
    for (const auto *service : all_services()) {
        if (service->full_name().starts_with("nyx.")) {
            report_health(until(global, deadline), service->full_name(), report);
        }
    }
}

void report_constants(report_s *report) {
    report->add("version", "nyxctl", "info", NYX_VERSION);
    report->add("limit", "gRPC request", "info", base::k_max_grpc_request_size);
    report->add("limit", "socket request", "info", base::k_max_socket_request_size);
}

outcome_s conclusion(const report_s &report, bool reachable) {
    if (report.problems.empty()) {
        return {};
    }
    return {reachable ? NYXCTL_EXIT_LOCAL : NYXCTL_EXIT_UNREACHABLE,
            fmt::format("{}: {}", reachable ? "degraded" : "no agent reachable",
                        fmt::join(report.problems, ", "))};
}

outcome_s run_status(const given_s &given) {
    const global_options_s &global = given.global;
    std::shared_ptr<grpc::Channel> unused;
    if (outcome_s outcome = grpc_channel(global, &unused); !outcome.ok()) {
        return outcome;  // address and files are wrong; nothing is sent
    }
    const deadline_t deadline = steady_clock::now() + global.timeout();
    // At the same time, so that one that hangs leaves the other its time.
    auto socket_asked =
        std::async(std::launch::async, [&] { return timed([&] { return ask_socket(global, deadline); }); });
    const answer_s rpc = timed([&] { return ask_grpc(global); });
    report_s report;
    report_address("grpc", global.grpc, rpc, &report);
    if (rpc.answers()) {
        report_all_health(global, deadline, &report);
    }
    const answer_s socket = socket_asked.get();
    if (socket.outcome.exit_code == NYXCTL_EXIT_USAGE) {
        return socket.outcome;
    }
    report_address("socket", global.socket, socket, &report);
    report_constants(&report);
    outcome_s written = write_rows(global, report.rows);
    return written.ok() ? conclusion(report, rpc.answers() || socket.answers()) : written;
}

}  // namespace

commands_t status_commands() {
    return {{"status", "Check whether the agent is reachable and healthy", k_footer, {}, run_status}};
}

}  // namespace nyxctl
