#include "client/cli/fault_commands.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>
#include <vector>

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

std::string add_footer() {
    return "SPEC is one of\n" + std::string(sim::k_fault_grammar) +
           R"(
Examples:
  nyxctl fault add nyx_tbl_flow_create:code=SDK_RET_RETRY_OPERATION,chance=20,seed=7
  nyxctl fault add nyx_tbl_flow_create:full=1000
  nyxctl fault add nyx_if_read_all:code=10,walk=2
  nyxctl fault add debug::nyx_handle_cmd:delay=300)";
}

constexpr char k_list_footer[] =
    R"(CALLS are those of the operation, for the key if one was given, since the fault was added; STRIKES are
those of them that failed or were delayed.

Examples:
  nyxctl fault list
  nyxctl fault list --operations          what can fail
  nyxctl fault list --operations port     with "port" in it)";

constexpr char k_clear_footer[] = R"(Shows the faults that were removed, with their last counts.

Examples:
  nyxctl fault clear        all
  nyxctl fault clear 2 3)";

outcome_s call(const global_options_s &global, const char *name, const google::protobuf::Message &request,
               google::protobuf::Message *response) {
    const google::protobuf::MethodDescriptor *method = nullptr;
    outcome_s outcome = find_method(std::string("nyx.FaultSvc.") + name, &method);
    if (outcome.ok()) {
        outcome = grpc_call(global, method, request, response);
    }
    if (outcome.exit_code == k_unimplemented) {
        outcome.text =
            "the agent at " + global.grpc +
            " does not offer fault injection; nyx-agent does, over TCP with its option --fault-service";
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

outcome_s run_add(const global_options_s &global, const std::string &spec) {
    nyx::FaultAddRequest request;
    request.set_fault(spec);
    nyx::FaultAddResponse response;
    if (outcome_s outcome = call(global, "FaultAdd", request, &response); !outcome.ok()) {
        return outcome;
    }
    return write_rows(global,
                      {.subject = "faults", .columns = {"id", "fault"}, .rows = {{response.id(), spec}}});
}

outcome_s run_list_faults(const global_options_s &global) {
    nyx::FaultListResponse response;
    outcome_s outcome = call(global, "FaultList", types::Empty(), &response);
    return outcome.ok() ? show_faults(global, response) : outcome;
}

bool contains(std::string_view text, std::string_view part) {
    const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    return part.empty() ||
           std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

outcome_s run_list_operations(const global_options_s &global, const std::string &part) {
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

outcome_s run_clear(const global_options_s &global, const std::vector<uint32_t> &ids) {
    nyx::FaultClearRequest request;
    request.mutable_id()->Add(ids.begin(), ids.end());
    nyx::FaultListResponse response;
    outcome_s outcome = call(global, "FaultClear", request, &response);
    return outcome.ok() ? show_faults(global, response) : outcome;
}

void add_add(CLI::App *app, context_s *context) {
    CLI::App *command = add_command(app, "add", "Arm a fault, and show its id", add_footer());
    const auto spec = std::make_shared<std::string>();
    command->add_option("SPEC", *spec, "The fault")->required();
    command->callback(
        [context, spec] { context->run = [context, spec] { return run_add(context->global, *spec); }; });
}

void add_list(CLI::App *app, context_s *context) {
    CLI::App *command =
        add_command(app, "list", "Show the faults that are armed, or what can fail", k_list_footer);
    const auto part = std::make_shared<std::string>();
    CLI::Option *operations = command->add_option(
        "--operations", *part, "What can fail: operations with TEXT in their name, or all");
    operations->expected(0, 1)->type_name("[TEXT]");
    command->callback([context, part, operations] {
        const bool wanted = operations->count() > 0;
        context->run = [context, part, wanted] {
            return wanted ? run_list_operations(context->global, *part) : run_list_faults(context->global);
        };
    });
}

std::string check_id(const std::string &text) {
    uint32_t id = 0;
    return CLI::detail::lexical_cast(text, id) && id > 0
               ? ""
               : "\"" + text + "\" is no id; give numbers that nyxctl fault list shows";
}

void add_clear(CLI::App *app, context_s *context) {
    CLI::App *command = add_command(app, "clear", "Remove faults", k_clear_footer);
    const auto ids = std::make_shared<std::vector<uint32_t>>();
    command->add_option("ID", *ids, "Ids as fault list shows them; without any all faults")
        ->type_name("[ID...]")
        ->check(check_id);
    command->callback(
        [context, ids] { context->run = [context, ids] { return run_clear(context->global, *ids); }; });
}

}  // namespace

void add_fault_commands(CLI::App *app, context_s *context) {
    CLI::App *group =
        add_command(app, "fault", "Rehearse failures, on an agent that runs on the stand-in", k_footer);
    group->require_subcommand(1);
    add_add(group, context);
    add_list(group, context);
    add_clear(group, context);
}

}  // namespace nyxctl
