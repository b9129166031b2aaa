#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <memory>
#include <thread>
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
#include "client/view/card_health.h"
#include "client/view/read_view.h"
#include "grpc/health/v1/health.pb.h"

namespace nyxctl {
namespace {

using grpc::health::v1::HealthCheckRequest;
using grpc::health::v1::HealthCheckResponse;
using std::chrono::steady_clock;
using seconds_t = std::chrono::duration<double>;

constexpr int k_not_found = NYXCTL_EXIT_GRPC_BASE + 5;
constexpr int k_unimplemented = NYXCTL_EXIT_GRPC_BASE + 12;
constexpr char k_stand_in_service[] = "nyx.FaultSvc";

constexpr double k_slow_ms = 2000;  // of an answer of the gRPC server or the socket

constexpr char k_footer[] = R"(The first line is the verdict, its reasons follow in the order of their weight,
each with the command that shows more:
  failed    gRPC server, debug socket or service request thread do not answer,
            or a value passes a critical limit of the dictionary
  degraded  a read fails; a port or interface is up by its settings, but down;
            a value passes a limit; drops, errors or refusals rose between two
            looks; the pipeline is quiesced; process recovery is off; the folder
            of the MAC addresses is missing; memory is short; answers are slow
  unknown   the agent or the dictionary does not say; this does not count
Limits are the members warn and critical of the dictionary, see nyxctl labels:
of a number itself, of a counter's growth per second, of the entries of a table
("flow.entries").
status is the same with --all. --timeout is for all reads together.

Exit codes: 0 ok, 1 degraded, 2 failed (also a wrong command line).

Examples:
  nyxctl health
  nyxctl health --all --interval 5
  nyxctl health -j | jq -r .health)";

const char *text_of(health_e state) {
    constexpr const char *k_texts[] = {"ok", "info", "unknown", "degraded", "failed"};
    return k_texts[static_cast<size_t>(state)];
}

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
    options.timeout_seconds = std::max(seconds_t(deadline - steady_clock::now()).count(), k_least_seconds);
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

void report_address(const char *check, const std::string &address, const answer_s &answer, const char *see,
                    report_t *report) {
    const health_e state = !answer.answers()                                         ? health_e::failed
                           : !answer.outcome.ok() || answer.milliseconds > k_slow_ms ? health_e::degraded
                                                                                     : health_e::ok;
    const std::string slow = fmt::format("answers after {:.0f} ms", answer.milliseconds);
    report->push_back({state, check, address,
                       !answer.outcome.ok()    ? answer.outcome.text
                       : state == health_e::ok ? "answers"
                                               : slow,
                       see, answer.milliseconds});
}

check_s service_check(const global_options_s &options, const std::string &service) {
    HealthCheckResponse response;
    const outcome_s outcome = ask_health(options, service, &response);
    check_s check = {.check = "service", .subject = service, .detail = "serving", .see = "list " + service};
    if (outcome.exit_code == k_not_found && service == k_stand_in_service) {
        check.state = health_e::info;
        check.detail = "not served; nyx-agent --fault-service does";
    } else if (outcome.exit_code == k_not_found || outcome.exit_code == k_unimplemented) {
        check.state = health_e::unknown;
        check.detail = "the agent does not say";
    } else if (!outcome.ok() || response.status() != HealthCheckResponse::SERVING) {
        check.state = health_e::degraded;
        check.detail =
            outcome.ok() ? HealthCheckResponse::ServingStatus_Name(response.status()) : outcome.text;
    }
    return check;
}

template <class Item, class Work>
auto at_once(const std::vector<Item> &items, Work work) {
    using result_t = decltype(work(items.front()));
    std::vector<std::future<result_t>> futures;
    for (const Item &item : items) {
        futures.push_back(std::async(std::launch::async, [&item, &work] { return work(item); }));
    }
    std::vector<result_t> results;
    for (auto &future : futures) {
        results.push_back(future.get());
    }
    return results;
}

check_s read_check(const snapshot_part_s &part, const outcome_s &outcome) {
    const bool offered = outcome.exit_code != k_unimplemented;
    return {outcome.ok() ? health_e::ok
            : offered    ? health_e::degraded
                         : health_e::unknown,
            "read", part.name,
            outcome.ok() ? "answers"
            : offered    ? outcome.text
                         : fmt::format("the agent does not offer {}", part.method),
            part.see};
}

// At the same time, so that one that hangs leaves the others their time.
looks_t look(const global_options_s &global, deadline_t deadline, const std::vector<snapshot_part_s> &parts,
             report_t *report) {
    struct read_s {
        look_s look;
        check_s check = {};
    };
    auto reads = at_once(parts, [&](const snapshot_part_s &part) {
        read_s read = {.look = {.part = part}};
        read.check = read_check(
            part, read_method(until(global, deadline), part.method, part.request, &read.look.response));
        read.look.at = steady_clock::now();
        return read;
    });
    looks_t looks;
    for (read_s &read : reads) {
        looks.push_back(std::move(read.look));
        report->push_back(std::move(read.check));
    }
    find_vitals(&looks);
    return looks;
}

// A second look at the counters of what should not happen.
void look_again(const global_options_s &global, deadline_t deadline, double interval, const looks_t &looks,
                report_t *report) {
    std::vector<snapshot_part_s> parts;
    std::vector<const look_s *> befores;
    for (const look_s &one : looks) {
        if (has_counters(one)) {
            parts.push_back(one.part);
            befores.push_back(&one);
        }
    }
    std::this_thread::sleep_for(seconds_t(interval));
    report_t reads;
    const looks_t again = look(global, deadline, parts, &reads);
    std::ranges::copy_if(reads, std::back_inserter(*report),
                         [](const check_s &read) { return read.state != health_e::ok; });
    for (size_t i = 0; i < again.size(); i++) {
        check_growth(*befores[i], again[i], report);
    }
}

void check_card(const given_s &given, deadline_t deadline, report_t *report) {
    std::vector<std::string> services;
    for (const auto *service : all_services()) {
        if (service->full_name().starts_with("nyx.")) {
            services.push_back(service->full_name());
        }
    }
    const report_t serving = at_once(services, [&](const std::string &service) {
        return service_check(until(given.global, deadline), service);
    });
    report->insert(report->end(), serving.begin(), serving.end());
    std::vector<snapshot_part_s> parts(snapshot_parts().begin(), snapshot_parts().end());
    parts.push_back({"agent", "AgentSvc.AgentGet", "{}", "call AgentGet"});
    const looks_t looks = look(given.global, deadline, parts, report);
    check_state(looks, report);
    if (given.seconds("--interval") > 0) {
        look_again(given.global, deadline, given.seconds("--interval"), looks, report);
    }
}

void add_constants(report_t *report) {
    report->push_back({health_e::info, "version", "nyxctl", NYX_VERSION});
    report->push_back({health_e::info, "limit", "gRPC request", base::k_max_grpc_request_size});
    report->push_back({health_e::info, "limit", "socket request", base::k_max_socket_request_size});
}

// The reasons, and which agent it is.
bool is_shown(const check_s &check) { return check.state >= health_e::unknown || check.check == "agent"; }

std::string line_of(const check_s &check) {
    const std::string what = check.subject.empty() ? check.check : check.check + " " + check.subject;
    std::string line =
        fmt::format("{:<9} {}: {}", text_of(check.state), cell_text(what), cell_text(check.detail));
    if (!check.milliseconds.is_null()) {
        line += fmt::format(", {} ms", cell_text(check.milliseconds));
    }
    const bool has_more = !check.see.empty() && check.state > health_e::ok;
    return line + (has_more ? fmt::format("\n{:10}nyxctl {}\n", "", cell_text(check.see)) : "\n");
}

outcome_s write_report(const given_s &given, const report_t &report, bool all) {
    const health_e worst = report.front().state;
    const bool is_well = worst < health_e::degraded;
    const char *verdict = text_of(is_well ? health_e::ok : worst);
    std::string text = fmt::format("{}\n", verdict);
    rows_s rows = {"checks", {"state", "check", "subject", "detail", "see", "ms"}, {}};
    for (const check_s &check : report) {
        text += all || is_shown(check) ? line_of(check) : "";
        rows.rows.push_back({text_of(check.state), check.check, check.subject, check.detail,
                             check.see.empty() ? "" : "nyxctl " + check.see, check.milliseconds});
    }
    outcome_s written = write_result(given.global, rows_to_json(rows, {{"health", verdict}}), text);
    if (!written.ok() || is_well) {
        return written;
    }
    // With -j stderr has an object for every exit code but 0.
    return {worst == health_e::failed ? NYXCTL_EXIT_FAILED : NYXCTL_EXIT_DEGRADED,
            given.global.json ? verdict : ""};
}

outcome_s check_health(const given_s &given, bool all) {
    const global_options_s &global = given.global;
    std::shared_ptr<grpc::Channel> unused;
    if (outcome_s outcome = grpc_channel(global, &unused); !outcome.ok()) {
        return outcome;  // address and files are wrong; nothing is sent
    }
    const deadline_t deadline = steady_clock::now() + global.timeout();
    auto socket_asked =
        std::async(std::launch::async, [&] { return timed([&] { return ask_socket(global, deadline); }); });
    const answer_s rpc = timed([&] { return ask_grpc(global); });
    report_t report;
    report_address("grpc", global.grpc, rpc, "list", &report);
    if (rpc.answers()) {
        check_card(given, deadline, &report);
    }
    const answer_s socket = socket_asked.get();
    if (socket.outcome.exit_code == NYXCTL_EXIT_USAGE) {
        return socket.outcome;
    }
    report_address("socket", global.socket, socket, "debug help", &report);
    add_constants(&report);
    std::ranges::stable_sort(report, std::ranges::greater(), &check_s::state);
    return write_report(given, report, all);
}

}  // namespace

commands_t health_commands() {
    const argument_s interval = {"--interval",
                                 "Time between two looks at counters of drops and errors; 0: one look",
                                 KIND_SECONDS,
                                 COUNT_ONE,
                                 "",
                                 {},
                                 0,
                                 3600,
                                 "1"};
    return {{"health",
             "Say whether agent and card are well, and why not",
             k_footer,
             {{"--all", "What is well, too", KIND_FLAG}, interval},
             [](const given_s &given) { return check_health(given, given.has("--all")); }},
            {"status",
             "The same as health --all",
             "See nyxctl health --help.\n\nExample:\n  nyxctl status",
             {interval},
             [](const given_s &given) { return check_health(given, true); }}};
}

}  // namespace nyxctl
