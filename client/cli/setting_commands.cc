#include <fmt/format.h>

#include <algorithm>

#include "client/cli/change.h"
#include "client/cli/commands.h"
#include "client/core/field_value.h"
#include "client/core/json.h"
#include "client/view/find_object.h"
#include "nyx/debug.pb.h"
#include "nyx/port.pb.h"
#include "nyx/system.pb.h"
#include "nyx/types/object.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr char k_port_footer[] =
    R"(The service replaces all settings of a port. So nyxctl reads the port, changes
the named settings, sends all of them back, and prints what changed; a change
made by somebody else in between is lost. The settings are the fields of
nyx.PortSpec, see nyxctl describe PortSpec.

Examples:
  nyxctl set port 1 number_a=1500
  nyxctl set port 1 setting_a=2 flag_b=yes)";

constexpr char k_clock_footer[] =
    R"(MHZ is one of: core 833, 900, 957, 1033, 1100; arm 1667, 2000, 2200, 3000;
p4 1137, 1500. Clocks are changed in this order; when one is refused, those
before it stay changed.

Example:
  nyxctl set clock core=1100 p4=1500)";

std::string quiet(const std::string &example) {
    return "The agent does not report failures.\n\nExample:\n  nyxctl " + example;
}

parts_t port_parts(pb::Message *spec) { return {spec}; }

outcome_s set_port(const given_s &given) {
    const std::vector<std::string> &words = given.all("SETTING");
    if (std::ranges::any_of(words, [](const std::string &word) {
            return word.starts_with("id=") || word.starts_with("port_number=");
        })) {
        return usage_failure("id and port_number of a port can't be changed; leave them out");
    }
    nyx::PortUpdateRequest request;  // wrong words are refused before anything is sent
    if (outcome_s outcome = set_fields(request.mutable_spec(), words); !outcome.ok()) {
        return outcome;
    }
    outcome_s outcome = read_spec(given.global, "port", given.one("PORT"), request.mutable_spec());
    return outcome.ok() ? change_settings(given.global, "nyx.PortSvc.PortUpdate", request,
                                          request.mutable_spec(), port_parts, words)
                        : outcome;
}

// The services report no failure, so that an object that does not exist is found out before.
outcome_s clear_stats(const given_s &given, const char *kind, const char *method) {
    types::Id id;
    outcome_s outcome;
    if (given.has("ID")) {
        outcome = find_id(given.global, kind, given.one("ID"), id.mutable_id());
    }
    return outcome.ok() ? change(given.global, method, id) : outcome;
}

outcome_s clear_port_stats(const given_s &given) {
    return clear_stats(given, "port", "nyx.PortSvc.PortStatsReset");
}

outcome_s clear_lif_stats(const given_s &given) {
    return clear_stats(given, "lif", "nyx.IfSvc.LifStatsReset");
}

outcome_s clear_drop_stats(const given_s &given) {
    return change(given.global, "nyx.DebugSvc.PbDropStatsReset", types::Empty());
}

outcome_s set_trace_level(const given_s &given) {
    nyx::TraceRequest request;
    const std::string word = "trace_level=" + given.one("LEVEL");
    outcome_s outcome = set_fields(&request, {&word, 1});
    return outcome.ok() ? change(given.global, "nyx.DebugSvc.TraceUpdate", request) : outcome;
}

struct clock_s {
    std::string word;
    const char *field;
};

const clock_s k_clocks[] = {
    {"core=", "clock_frequency="}, {"arm=", "arm_clock_frequency="}, {"p4=", "p4_stage_frequency="}};

outcome_s set_clock(const given_s &given) {
    std::vector<std::string> words;
    for (const std::string &word : given.all("CLOCK")) {
        const auto clock = std::ranges::find_if(
            k_clocks, [&](const clock_s &known) { return word.starts_with(known.word); });
        if (clock == std::end(k_clocks)) {
            return usage_failure(fmt::format("unknown clock \"{}\"; give core=MHZ, arm=MHZ or p4=MHZ", word));
        }
        words.push_back(clock->field + word.substr(clock->word.size()));
    }
    nyx::ClockFrequencyRequest request;
    outcome_s outcome = set_fields(&request, words);
    return outcome.ok()
               ? with_hint(change(given.global, "nyx.SystemSvc.ClockFrequencyUpdate", request),
                           "core takes 833, 900, 957, 1033 and 1100, arm 1667, 2000, 2200 and 3000, p4 1137 "
                           "and 1500")
               : outcome;
}

// A switch that has one method for on and one for off.
struct switch_s {
    const char *on;
    const char *off;

    outcome_s operator()(const given_s &given) const {
        return change(given.global, given.one("STATE") == "on" ? on : off, types::Empty());
    }
};

constexpr switch_s k_recovery = {"nyx.SystemSvc.ProcessRecoveryEnable",
                                 "nyx.SystemSvc.ProcessRecoveryDisable"};
constexpr switch_s k_quiesce = {"nyx.PipelineSvc.QuiesceStart", "nyx.PipelineSvc.QuiesceStop"};
constexpr switch_s k_lif_statistics = {"nyx.PipelineSvc.LifStatisticsEnable",
                                       "nyx.PipelineSvc.LifStatisticsDisable"};
constexpr switch_s k_session_statistics = {"nyx.PipelineSvc.SessionStatisticsEnable",
                                           "nyx.PipelineSvc.SessionStatisticsDisable"};

outcome_s set_statistics(const given_s &given) {
    return (given.one("WHAT") == "lifs" ? k_lif_statistics : k_session_statistics)(given);
}

std::vector<std::string> trace_levels() {
    std::vector<std::string> names;
    for (int i = 0; i < nyx::TraceLevel_descriptor()->value_count(); i++) {
        names.push_back(enumerator_text(nyx::TraceLevel_descriptor()->value(i)));
    }
    return names;
}

}  // namespace

commands_t setting_commands() {
    const std::vector<std::string> levels = trace_levels();
    const argument_s state = {"STATE", "Switch it on or off", KIND_CHOICE, COUNT_ONE, "", {"on", "off"}};
    return {
        {"set", "Change ports, interfaces, clocks, tracing, switches",
         "Examples:\n  nyxctl set port 1 number_a=1500\n  nyxctl set trace-level debug"},
        {"set port",
         "Change settings of a port and keep the others",
         k_port_footer,
         {{"PORT", "Port number or id", KIND_ID, COUNT_ONE, "ID|NUMBER", {"port"}},
          {"SETTING", "A setting and its value", KIND_PORT_FIELD, COUNT_SOME, "SETTING=VALUE"}},
         set_port},
        {"set trace-level",
         "Set how much the agent logs",
         "Example:\n  nyxctl set trace-level debug",
         {{"LEVEL", "The level", KIND_TEXT, COUNT_ONE, fmt::format("{}", fmt::join(levels, "|")), levels}},
         set_trace_level},
        {"set clock",
         "Set clock frequencies",
         k_clock_footer,
         {{"CLOCK",
           "A clock and its frequency",
           KIND_TEXT,
           COUNT_SOME,
           "core=MHZ|arm=MHZ|p4=MHZ",
           {"core=", "arm=", "p4="}}},
         set_clock},
        {"set recovery",
         "Switch the automatic recovery of processes",
         quiet("set recovery off && nyxctl call ProcessRecoveryGet"),
         {state},
         k_recovery},
        {"set quiesce", "Start or stop quiescing the pipeline", quiet("set quiesce on"), {state}, k_quiesce},
        {"set statistics",
         "Switch the collection of statistics",
         quiet("set statistics sessions on"),
         {{"WHAT", "Which statistics", KIND_CHOICE, COUNT_ONE, "", {"sessions", "lifs"}}, state},
         set_statistics},
        {"clear", "Clear statistics", "Example:\n  nyxctl clear port-stats 1"},
        {"clear port-stats",
         "Clear the counters of a port",
         quiet("clear port-stats 1"),
         {{"ID",
           "Port number or id; without it the agent gets the all-zero id",
           KIND_ID,
           COUNT_OPTIONAL,
           "ID|NUMBER",
           {"port"}}},
         clear_port_stats},
        {"clear lif-stats",
         "Clear the statistics of a LIF or of all LIFs",
         quiet("clear lif-stats host0-lif"),
         {{"ID", "Id, name or MAC address; without it all LIFs", KIND_ID, COUNT_OPTIONAL, "", {"lif"}}},
         clear_lif_stats},
        {"clear drop-stats",
         "Clear the packet buffer's drop counters",
         quiet("clear drop-stats"),
         {},
         clear_drop_stats},
    };
}

}  // namespace nyxctl
