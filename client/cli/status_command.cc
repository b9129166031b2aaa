#include "client/cli/status_command.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <memory>
#include <vector>

#include "base/request_limits.h"
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
  grpc, socket   whether the agent answers there, and in how many milliseconds from connecting on: a health
                 check, and the debug command help
  health         what grpc.health.v1.Health says of each service
  version        this client's
  limit          largest requests in bytes: what nyx-agent takes over gRPC, and what any agent reads
                 from its socket
STATE is ok, info, unknown (the agent can't tell), warning or unreachable. --timeout is for all together.

Exit codes: 0 when nothing is warning or unreachable, 3 when the agent answers at neither address, 1 when
something else is not well; stderr names it, its row tells why.

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

// A door of the agent: how asking there ended, and how long that took.
struct door_s {
    outcome_s outcome;
    double milliseconds = 0;

    bool answers() const {
        return outcome.exit_code != NYXCTL_EXIT_UNREACHABLE && outcome.exit_code != NYXCTL_EXIT_DEADLINE;
    }
};

template <class Ask>
door_s timed(Ask ask) {
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

// An agent without health service answers all the same.
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

void report_door(const char *check, const std::string &address, const door_s &door, report_s *report) {
    const char *state = door.outcome.ok() ? "ok" : door.answers() ? "warning" : "unreachable";
    report->add(check, address, state, door.outcome.ok() ? "answers" : door.outcome.text, door.milliseconds);
    if (!door.outcome.ok()) {
        report->problems.emplace_back(check);
    }
}

void report_health(const global_options_s &options, const std::string &service, report_s *report) {
    HealthCheckResponse response;
    const outcome_s outcome = ask_health(options, service, &response);
    if (outcome.exit_code == k_not_found && service == k_stand_in_service) {
        report->add("health", service, "info", "not served; nyx-agent --fault-service does");
    } else if (outcome.exit_code == k_not_found || outcome.exit_code == k_unimplemented) {
        report->add("health", service, "unknown", "the agent does not tell");
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
    std::string text = reachable ? "degraded" : "no agent reachable";
    for (const std::string &problem : report.problems) {
        text += (&problem == &report.problems.front() ? ": " : ", ") + problem;
    }
    return {reachable ? NYXCTL_EXIT_LOCAL : NYXCTL_EXIT_UNREACHABLE, text};
}

outcome_s run_status(const global_options_s &global) {
    std::shared_ptr<grpc::Channel> unused;
    if (outcome_s outcome = grpc_channel(global, &unused); !outcome.ok()) {
        return outcome;  // address and files are wrong; nothing is sent
    }
    const deadline_t deadline = steady_clock::now() + global.timeout();
    // At the same time, so that one that hangs leaves the other its time.
    auto socket_asked =
        std::async(std::launch::async, [&] { return timed([&] { return ask_socket(global, deadline); }); });
    const door_s rpc = timed([&] { return ask_grpc(global); });
    report_s report;
    report_door("grpc", global.grpc, rpc, &report);
    if (rpc.answers()) {
        report_all_health(global, deadline, &report);
    }
    const door_s socket = socket_asked.get();
    if (socket.outcome.exit_code == NYXCTL_EXIT_USAGE) {
        return socket.outcome;
    }
    report_door("socket", global.socket, socket, &report);
    report_constants(&report);
    outcome_s written = write_rows(global, report.rows);
    return written.ok() ? conclusion(report, rpc.answers() || socket.answers()) : written;
}

}  // namespace

void add_status_command(CLI::App *app, context_s *context) {
    CLI::App *command =
        add_command(app, "status", "Tell whether the agent is reachable and healthy", k_footer);
    command->callback([context] { context->run = [context] { return run_status(context->global); }; });
}

}  // namespace nyxctl
