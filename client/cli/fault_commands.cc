#include <fmt/format.h>

#include <algorithm>
#include <cctype>
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
  nyxctl fault clear        all of them
  nyxctl fault clear 1      the one with this id)";

outcome_s call(const global_options_s &global, const char *name, const google::protobuf::Message &request,
               google::protobuf::Message *response) {
    const google::protobuf::MethodDescriptor *method = nullptr;
    outcome_s outcome = find_method(std::string("nyx.FaultSvc.") + name, &method);
    if (outcome.ok()) {
        outcome = grpc_call(global, method, request, response);
    }
    if (outcome.exit_code == k_unimplemented) {
        outcome.text = fmt::format(
            "the agent at {} does not offer fault injection; nyx-agent does, over TCP with its option "
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

}  // namespace

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
