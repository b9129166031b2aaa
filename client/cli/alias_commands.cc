#include "client/cli/alias_commands.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/cli/alias_calls.h"
#include "client/core/field_value.h"
#include "nyx/debug.pb.h"

namespace nyxctl {
namespace {

enum count_e { ONE, OPTIONAL, MANY };

struct argument_s {
    std::string name;
    std::string type;  // what may stand there, as the help shows it; completion offers "on|off" as two words
    std::string description;
    count_e count = ONE;
};

using args_t = std::vector<std::string>;  // of all arguments, one after the other

struct alias_s {
    std::string noun;
    std::string description;
    std::string footer;
    std::vector<argument_s> arguments;
    outcome_s (*run)(const global_options_s &global, const args_t &args);
};

struct verb_s {
    std::string verb;
    std::string description;
    std::string footer;
    std::vector<alias_s> aliases;
};

constexpr char k_port_footer[] =
    R"(The service replaces all settings of a port. So the port is read first, what is named is changed, and all
settings are sent back; a change that somebody else makes in between is lost. The settings are the fields of
nyx.PortSpec, see nyxctl describe PortSpec.

Examples:
  nyxctl set port 1 number_a=1500
  nyxctl set port 1 setting_a=2 flag_b=yes)";

constexpr char k_interface_footer[] =
    R"(Fields are those of nyx.InterfaceSpec (id, admin_status, tx_mirror_session, rx_mirror_session) and of the kind:
nyxctl describe UplinkSpec, L3IfSpec, LoopbackIfSpec, ControlIfSpec, HostIfSpec.

Examples:
  nyxctl VERB interface uplink id=0a admin_status=up port_id=01
  nyxctl VERB interface l3 id=0b admin_status=up prefix=10.0.0.1/24 mac_address=00:1a:2b:3c:4d:5e
      encap.type=dot1q encap.value.val_vlan=100
  nyxctl VERB interface loopback id=0c prefix=2001:db8::1/128
  nyxctl VERB interface host HOST)";

std::string interface_footer(const std::string &verb, const std::string &host, const std::string &more) {
    std::string text = k_interface_footer;
    for (size_t at = 0; (at = text.find("VERB", at)) != text.npos;) {
        text.replace(at, 4, verb);
    }
    return more + text.replace(text.rfind("HOST"), 4, host);
}

std::string joined(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : "|") + name;
    }
    return text;
}

std::string trace_levels() {
    std::vector<std::string> names;
    for (int i = 0; i < nyx::TraceLevel_descriptor()->value_count(); i++) {
        names.push_back(enumerator_text(nyx::TraceLevel_descriptor()->value(i)));
    }
    return joined(names);
}

std::vector<argument_s> interface_arguments() {
    return {{"KIND", joined(interface_kinds()), "Kind of the interface"},
            {"FIELD", "FIELD=VALUE", "A field and its value", MANY}};
}

verb_s set_verb() {
    const argument_s state = {"STATE", "on|off", "Switch it on or off"};
    const std::string quiet = "The agent does not report failures.\n\n";
    return {
        "set",
        "Change settings: ports, interfaces, clocks, tracing, switches",
        "Examples:\n  nyxctl set port 1 number_a=1500\n  nyxctl set trace-level debug",
        {{"port",
          "Change settings of a port and keep the others",
          k_port_footer,
          {{"PORT", "ID|NUMBER", "Port number (up to 3 digits), or id as UUID or hex digits"},
           {"SETTING", "SETTING=VALUE", "A setting and its value", MANY}},
          [](auto &global, auto &args) { return set_port(global, args[0], words_t(args).subspan(1)); }},
         {"interface", "Replace all settings of an interface",
          interface_footer(
              "set", "name=h1 mac_address=00:1a:2b:3c:4d:5e",
              "The service replaces the whole specification: give all fields, those that are left out\n"
              "become 0. A host interface without id is one by name, for the agent's next start.\n\n"),
          interface_arguments(),
          [](auto &global, auto &args) {
              return write_interface(global, "nyx.IfSvc.InterfaceUpdate", args[0], words_t(args).subspan(1));
          }},
         {"trace-level",
          "Set how much the agent logs",
          "Example:\n  nyxctl set trace-level debug",
          {{"LEVEL", trace_levels(), "The level"}},
          [](auto &global, auto &args) {
              return call_with_words(global, "nyx.DebugSvc.TraceUpdate", args_t{"trace_level=" + args[0]});
          }},
         {"clock",
          "Set clock frequencies",
          "MHZ is one of: core 833, 900, 957, 1033, 1100; arm 1667, 2000, 2200, 3000; p4 1137, 1500. Clocks "
          "are\n"
          "changed in this order; those before a refused one stay changed.\n\n"
          "Example:\n  nyxctl set clock core=1100 p4=1500",
          {{"CLOCK", "core=MHZ|arm=MHZ|p4=MHZ", "A clock and its frequency", MANY}},
          [](auto &global, auto &args) { return set_clocks(global, args); }},
         {"recovery",
          "Switch the automatic recovery of processes",
          quiet + "Example:\n  nyxctl set recovery off && nyxctl call ProcessRecoveryGet",
          {state},
          [](auto &global, auto &args) { return set_switch(global, "recovery", args[0]); }},
         {"quiesce",
          "Start or stop quiescing the pipeline",
          quiet + "Example:\n  nyxctl set quiesce on",
          {state},
          [](auto &global, auto &args) { return set_switch(global, "quiesce", args[0]); }},
         {"statistics",
          "Switch the collection of statistics",
          quiet + "Example:\n  nyxctl set statistics sessions on",
          {{"WHAT", "sessions|lifs", "Which statistics"}, state},
          [](auto &global, auto &args) { return set_switch(global, args[0], args[1]); }}},
    };
}

verb_s add_verb() {
    return {"add",
            "Create interfaces",
            "Example:\n  nyxctl add interface loopback id=0c prefix=10.0.0.1/32",
            {{"interface", "Create an interface",
              interface_footer(
                  "add", "id=0d name=h1 mac_address=00:1a:2b:3c:4d:5e",
                  "A host interface is not created in the agent: its name and MAC address are stored\n"
                  "for the agent's next start.\n\n"),
              interface_arguments(), [](auto &global, auto &args) {
                  return write_interface(global, "nyx.IfSvc.InterfaceCreate", args[0],
                                         words_t(args).subspan(1));
              }}}};
}

verb_s del_verb() {
    return {"del",
            "Delete interfaces",
            "Example:\n  nyxctl del interface 0a 0b",
            {{"interface",
              "Delete interfaces by their ids: all of them or none",
              "Example:\n  nyxctl del interface 0a00112233445566778899aabbccddee",
              {{"ID", "ID", "Id as UUID or hex digits", MANY}},
              [](auto &global, auto &args) { return delete_interfaces(global, args); }}}};
}

verb_s clear_verb() {
    const std::string quiet = "The agent does not report failures.\n\n";
    return {"clear",
            "Clear statistics",
            "Example:\n  nyxctl clear port-stats 1",
            {{"port-stats",
              "Clear the counters of a port",
              quiet + "Examples:\n  nyxctl clear port-stats 1\n  nyxctl clear port-stats",
              {{"PORT", "ID|NUMBER",
                "Port number (up to 3 digits), or id; without it the agent gets the all-zero id", OPTIONAL}},
              [](auto &global, auto &args) { return clear_port_stats(global, args); }},
             {"lif-stats",
              "Clear the statistics of a LIF or of all LIFs",
              quiet + "Examples:\n  nyxctl clear lif-stats 0a\n  nyxctl clear lif-stats",
              {{"ID", "ID", "Id as UUID or hex digits; without it all LIFs", OPTIONAL}},
              [](auto &global, auto &args) { return clear_lif_stats(global, args); }},
             {"drop-stats",
              "Clear the packet buffer's drop counters",
              quiet + "Example:\n  nyxctl clear drop-stats",
              {},
              [](auto &global, auto &) {
                  return call_with_words(global, "nyx.DebugSvc.PbDropStatsReset", {});
              }}}};
}

struct given_s {
    std::optional<std::string> one;
    args_t many;
};

void add_argument(CLI::App *command, const argument_s &argument, given_s *given) {
    CLI::Option *option = argument.count == MANY
                              ? command->add_option(argument.name, given->many, argument.description)
                              : command->add_option(argument.name, given->one, argument.description);
    option->type_name(argument.type)->required(argument.count != OPTIONAL);
}

args_t flat(const std::vector<given_s> &given) {
    args_t args;
    for (const given_s &argument : given) {
        if (argument.one) {
            args.push_back(*argument.one);
        }
        args.insert(args.end(), argument.many.begin(), argument.many.end());
    }
    return args;
}

void add_alias(CLI::App *verb, const alias_s &alias, context_s *context) {
    CLI::App *command = add_command(verb, alias.noun, alias.description, alias.footer);
    const auto given = std::make_shared<std::vector<given_s>>(alias.arguments.size());
    for (size_t i = 0; i < alias.arguments.size(); i++) {
        add_argument(command, alias.arguments[i], &given->at(i));
    }
    command->callback([context, given, run = alias.run] {
        context->run = [context, given, run] { return run(context->global, flat(*given)); };
    });
}

}  // namespace

void add_alias_commands(CLI::App *app, context_s *context) {
    for (const verb_s &verb : {set_verb(), add_verb(), del_verb(), clear_verb()}) {
        CLI::App *command = add_command(app, verb.verb, verb.description, verb.footer);
        command->require_subcommand(1);
        for (const alias_s &alias : verb.aliases) {
            add_alias(command, alias, context);
        }
    }
}

}  // namespace nyxctl
