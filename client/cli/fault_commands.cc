#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>

#include "client/cli/commands.h"
#include "client/core/grpc_call.h"
#include "client/core/rows.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"
#include "nyx/fault.pb.h"
#include "nyx/types/object.pb.h"
#include "sim/proto/fault_grammar.h"

namespace nyxctl {
namespace {

constexpr int k_unimplemented = NYXCTL_EXIT_GRPC_BASE + 12;

constexpr char k_footer[] = R"(Examples:
  nyxctl fault list --operations flow_info
  nyxctl fault add nyx_tbl_flow_info_create:code=6,nth=3
  nyxctl fault list
  nyxctl fault clear)";

constexpr char k_add_footer[] = R"(SPEC is one of
{}
Examples:
  nyxctl fault add nyx_tbl_flow_create:code=SDK_RET_RETRY_OPERATION,chance=20
  nyxctl fault add nyx_tbl_flow_create:full=1000
  nyxctl fault add nyx_if_read_all:code=10,walk=2
  nyxctl fault add debug::nyx_handle_cmd:delay=300)";

constexpr char k_list_footer[] =
    R"(CALLS counts the calls of the operation since the fault was added, only those
for its key if it has one; STRIKES counts those that failed or were delayed.

Examples:
  nyxctl fault list
  nyxctl fault list --operations          what can fail
  nyxctl fault list --operations port     with "port" in the name)";

constexpr char k_clear_footer[] = R"(Shows the faults that were removed, with their last counts.

Examples:
  nyxctl fault clear 1      the one with this id
  nyxctl fault clear        all of them)";

constexpr char k_scenario_footer[] =
    R"(A scenario lets the card live: traffic moves its counters, links flap, sensors
drift, tables fill. The same seed gives the same card at the same virtual time.
While none runs, the card stands still.

Examples:
  nyxctl scenario list
  nyxctl scenario set busy --speed 60       a minute in each second
  nyxctl scenario set ./my.toml --speed 0   its clock stands still, but for
  nyxctl scenario advance 30                this
  nyxctl scenario show
  nyxctl scenario stop)";

constexpr char k_set_footer[] =
    R"(The card starts anew: tables and created interfaces are gone, and counters begin
at 0. A file needs a slash or a dot in its name; examples of such files are in
the folder of nyx-agent's scenarios, /usr/share/nyx-agent/scenarios.

Examples:
  nyxctl scenario set flapping --seed 7
  nyxctl scenario set ./my.toml --speed 60)";

outcome_s call(const global_options_s &global, const char *name, const google::protobuf::Message &request,
               google::protobuf::Message *response) {
    const google::protobuf::MethodDescriptor *method = nullptr;
    outcome_s outcome = find_method(std::string("nyx.FaultSvc.") + name, &method);
    if (outcome.ok()) {
        outcome = grpc_call(global, method, request, response);
    }
    if (outcome.exit_code == k_unimplemented) {
        outcome.text = fmt::format(
            "the agent at {} does not offer faults and scenarios; nyx-agent does, over TCP with its option "
            "--fault-service",
            global.grpc);
    }
    return outcome;
}

outcome_s show_faults(const global_options_s &global, const nyx::FaultListResponse &response) {
    rows_s rows = {.subject = "faults", .columns = {"id", "fault", "calls", "strikes"}, .rows = {}};
    for (const nyx::Fault &fault : response.response()) {
        rows.rows.push_back({fault.id(), fault.fault(), fault.calls(), fault.strikes()});
    }
    return write_rows(global, rows);
}

outcome_s run_add(const given_s &given) {
    nyx::FaultAddRequest request;
    request.set_fault(given.one("SPEC"));
    nyx::FaultAddResponse response;
    if (outcome_s outcome = call(given.global, "FaultAdd", request, &response); !outcome.ok()) {
        return outcome;
    }
    return write_rows(
        given.global,
        {.subject = "faults", .columns = {"id", "fault"}, .rows = {{response.id(), request.fault()}}});
}

bool contains(std::string_view text, std::string_view part) {
    const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    return part.empty() ||
           std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

outcome_s list_operations(const global_options_s &global, const std::string &part) {
    nyx::FaultOperationsGetResponse response;
    if (outcome_s outcome = call(global, "FaultOperationsGet", types::Empty(), &response); !outcome.ok()) {
        return outcome;
    }
    rows_s rows = {.subject = "operations", .columns = {"operation"}, .rows = {}};
    for (const std::string &operation : response.operation()) {
        if (contains(operation, part)) {
            rows.rows.push_back({operation});
        }
    }
    return write_rows(global, rows);
}

outcome_s run_list(const given_s &given) {
    if (given.has("--operations")) {
        return list_operations(given.global, given.one("--operations"));
    }
    nyx::FaultListResponse response;
    outcome_s outcome = call(given.global, "FaultList", types::Empty(), &response);
    return outcome.ok() ? show_faults(given.global, response) : outcome;
}

outcome_s run_clear(const given_s &given) {
    nyx::FaultClearRequest request;
    for (const uint32_t id : given.numbers("ID")) {
        request.add_id(id);
    }
    nyx::FaultListResponse response;
    outcome_s outcome = call(given.global, "FaultClear", request, &response);
    return outcome.ok() ? show_faults(given.global, response) : outcome;
}

double to_seconds(uint64_t ms) { return static_cast<double>(ms) / 1000; }

outcome_s show_scenario(const global_options_s &global, const nyx::ScenarioGetResponse &scenario) {
    rows_s rows = {
        .subject = "scenarios",
        .columns = {"name", "running", "seed", "speed", "virtual_s", "events", "restarts", "title"},
        .rows = {}};
    if (scenario.is_running() || scenario.virtual_time_ms() > 0) {
        rows.rows.push_back({scenario.name(), scenario.is_running(), scenario.seed(), scenario.speed(),
                             to_seconds(scenario.virtual_time_ms()), scenario.events(), scenario.restarts(),
                             scenario.title()});
    }
    return write_rows(global, rows);
}

outcome_s show_scenario_events(const global_options_s &global, const nyx::ScenarioGetResponse &scenario) {
    rows_s rows = {.subject = "events", .columns = {"virtual_s", "event"}, .rows = {}};
    for (const auto &event : scenario.last_event()) {
        rows.rows.push_back({to_seconds(event.virtual_time_ms()), event.text()});
    }
    return write_rows(global, rows);
}

outcome_s run_scenario_set(const given_s &given) {
    nyx::ScenarioSetRequest request;
    request.set_name(given.one("NAME"));
    request.set_seed(given.number("--seed"));
    request.set_speed(given.number("--speed"));
    if (request.name().find_first_of("/.") != std::string::npos) {
        if (outcome_s outcome = read_file(request.name(), request.mutable_toml()); !outcome.ok()) {
            return outcome;
        }
    }
    nyx::ScenarioGetResponse response;
    outcome_s outcome = call(given.global, "ScenarioSet", request, &response);
    return outcome.ok() ? show_scenario(given.global, response) : outcome;
}

outcome_s run_scenario_show(const given_s &given) {
    nyx::ScenarioGetResponse response;
    if (outcome_s outcome = call(given.global, "ScenarioGet", types::Empty(), &response); !outcome.ok()) {
        return outcome;
    }
    return given.has("--events") ? show_scenario_events(given.global, response)
                                 : show_scenario(given.global, response);
}

outcome_s run_scenario_list(const given_s &given) {
    nyx::ScenarioGetResponse response;
    if (outcome_s outcome = call(given.global, "ScenarioGet", types::Empty(), &response); !outcome.ok()) {
        return outcome;
    }
    rows_s rows = {.subject = "scenarios", .columns = {"name"}, .rows = {}};
    for (const std::string &name : response.known_name()) {
        rows.rows.push_back({name});
    }
    return write_rows(given.global, rows);
}

outcome_s run_scenario_advance(const given_s &given) {
    nyx::ScenarioAdvanceRequest request;
    request.set_by_ms(static_cast<uint64_t>(std::llround(given.seconds("SECONDS") * 1000)));
    nyx::ScenarioGetResponse response;
    outcome_s outcome = call(given.global, "ScenarioAdvance", request, &response);
    return outcome.ok() ? show_scenario(given.global, response) : outcome;
}

outcome_s run_scenario_stop(const given_s &given) {
    nyx::ScenarioGetResponse response;
    outcome_s outcome = call(given.global, "ScenarioStop", types::Empty(), &response);
    return outcome.ok() ? show_scenario(given.global, response) : outcome;
}

}  // namespace

commands_t scenario_commands() {
    return {
        {"scenario", "Let the card live, on an agent that runs on the stand-in", k_scenario_footer},
        {"scenario set",
         "Start a scenario, on a card that starts anew",
         k_set_footer,
         {{"NAME", "A name that scenario list shows, or a file", KIND_FILE},
          {"--seed",
           "Another seed gives other bursts and times",
           KIND_NUMBER,
           COUNT_ONE,
           "",
           {},
           0,
           UINT32_MAX,
           "1"},
          {"--speed",
           "Seconds of virtual time in a second; 0: only scenario advance moves the clock",
           KIND_NUMBER,
           COUNT_ONE,
           "",
           {},
           0,
           1000,
           "1"}},
         run_scenario_set},
        {"scenario list", "Show the scenarios that nyx-agent brings along", "", {}, run_scenario_list},
        {"scenario show",
         "Show which scenario runs, and how late it is there",
         "",
         {{"--events", "What has happened, the last 64 events", KIND_FLAG}},
         run_scenario_show},
        {"scenario advance",
         "Set the clock of the scenario forward",
         "",
         {{"SECONDS", "By how much, up to an hour", KIND_SECONDS, COUNT_ONE, "", {}, 0, 3600}},
         run_scenario_advance},
        {"scenario stop", "End the scenario; the card stays as it is", "", {}, run_scenario_stop},
    };
}

commands_t fault_commands() {
    return {
        {"fault", "Rehearse failures, on an agent that runs on the stand-in", k_footer},
        {"fault add",
         "Arm a fault, and show its id",
         fmt::format(k_add_footer, sim::k_fault_grammar),
         {{"SPEC", "The fault"}},
         run_add},
        {"fault list",
         "Show the faults that are armed, or what can fail",
         k_list_footer,
         {{"--operations", "What can fail: operations with TEXT in their name, or all", KIND_TEXT,
           COUNT_OPTIONAL, "[TEXT]"}},
         run_list},
        {"fault clear",
         "Remove faults",
         k_clear_footer,
         {{"ID", "Ids that fault list shows; without any, all faults", KIND_NUMBER, COUNT_ANY, "", {}, 1}},
         run_clear},
    };
}

}  // namespace nyxctl
