#include "sim/api/debug_commands.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <span>
#include <string>

#include "sim/api/debug_output.h"
#include "sim/api/tables.h"
#include "sim/faults/faults.h"

namespace sim {

namespace {

std::mutex g_lock;
std::optional<cmd_ctxt_s> g_last_command;

std::string text_of(const nyx_obj_key_s &key) {
    const std::span<const uint8_t> id(key.id);
    return fmt::format("{:02x}-{:02x}-{:02x}-{:02x}-{:02x}", fmt::join(id.first(4), ""),
                       fmt::join(id.subspan(4, 2), ""), fmt::join(id.subspan(6, 2), ""),
                       fmt::join(id.subspan(8, 2), ""), fmt::join(id.subspan(10), ""));
}

std::string text_of(const mac_addr_s &mac) {
    return fmt::format("{:02x}", fmt::join(std::span<const uint8_t>(mac.bytes), ":"));
}

std::string text_of(const ip_addr_s &ip) {
    char text[INET6_ADDRSTRLEN];
    if (ip.af == IP_AF_IPV6) {
        return inet_ntop(AF_INET6, ip.addr, text, sizeof(text));
    }
    uint32_t v4;
    memcpy(&v4, ip.addr, sizeof(v4));
    v4 = htonl(v4);
    return ip.af == IP_AF_IPV4 ? inet_ntop(AF_INET, &v4, text, sizeof(text)) : "none";
}

std::string mapping_args(const cmd_ctxt_s &ctxt) {
    static constexpr const char *k_types[] = {"local L2", "local L3", "remote L2", "remote L3"};
    const auto args = ctxt.args.mapping_dump;
    std::string text = fmt::format("dump type: {}\n", k_types[args.dump_type % 4]);
    if (args.key_present) {
        const bool is_l2 = args.key_kind == 1;
        const uint32_t hw_id = args.hw_id;
        text += fmt::format("key: {} hw id {} address {}\n", is_l2 ? "L2" : "L3", hw_id,
                            is_l2 ? text_of(args.address.mac) : text_of(args.address.ip));
    }
    return text;
}

std::string interface_args(const cmd_ctxt_s &ctxt) {
    const auto args = ctxt.args.interface_dump;
    const uint32_t type = args.if_type;
    return fmt::format("interface type: {}\ninterface: {}\n", type, text_of(args.key));
}

std::string object_args(const cmd_ctxt_s &ctxt) {
    return fmt::format("object: {}\n", text_of(ctxt.args.key));
}

std::string flow_args(const cmd_ctxt_s &ctxt) {
    const uint16_t selector = ctxt.args.flow_selector;
    return fmt::format("selector: {}\n", selector);
}

std::string l4_args(const flow_trace_args_s &args) {
    const uint16_t src_port = args.l4.ports.src_port, dst_port = args.l4.ports.dst_port;
    const uint16_t identifier = args.l4.icmp.identifier;
    switch (args.ip_proto) {
        case IPPROTO_TCP:
        case IPPROTO_UDP:
            return fmt::format("ports: {} to {}\n", src_port, dst_port);
        case IPPROTO_ICMP:
            return fmt::format("icmp: type {} code {} identifier {}\n", args.l4.icmp.type, args.l4.icmp.code,
                               identifier);
    }
    return {};
}

std::string flow_trace_args(const cmd_ctxt_s &ctxt) {
    const auto args = ctxt.args.flow_trace;
    const uint32_t scalar = args.scalar;
    return fmt::format("object: {}\nmac: {} {}\nip: {} {} {}\nprotocol: {}\nscalar: {}\n{}",
                       text_of(args.key), text_of(args.mac_1), text_of(args.mac_2), text_of(args.ip_1),
                       text_of(args.ip_2), text_of(args.ip_3), args.ip_proto, scalar, l4_args(args));
}

std::string datapath_assist_args(const cmd_ctxt_s &ctxt) {
    const uint32_t value = ctxt.args.datapath_assist_value;
    return fmt::format("value: {}\n", value);
}

std::string datapath_assist_cps_args(const cmd_ctxt_s &ctxt) {
    const uint32_t value = ctxt.args.datapath_assist_cps.value;
    return fmt::format("selector: {}\nvalue: {}\n", ctxt.args.datapath_assist_cps.selector, value);
}

std::string interrupt_args(const cmd_ctxt_s &ctxt) {
    return fmt::format("selector: {}\n", ctxt.args.interrupt_selector);
}

std::string help(const cmd_ctxt_s &);

std::string tables(const cmd_ctxt_s &) {
    std::string text = fmt::format("{:<24} {:>8}\n", "table", "entries");
    for (size_t table = 0; table < table_infos().size(); table++) {
        text += fmt::format("{:<24} {:>8}\n", table_infos()[table].name, table_entry_count(table));
    }
    return text;
}

using text_function = std::string (*)(const cmd_ctxt_s &);

struct command_s {
    uint32_t cmd;  // in the library's own numbering
    const char *name;
    const char *args;     // the argument message; null when the command takes none
    text_function print;  // of a command with arguments: the arguments in words
    const char *about;
};

constexpr command_s k_commands[] = {
    {1, "help", nullptr, help, "the commands that exist"},
    {2, "tables", nullptr, tables, "the P4 tables and their numbers of entries"},
    {3, "mapping-dump", "MappingDumpFilter", mapping_args, "mappings (this stand-in holds none)"},
    {4, "interface-dump", "InterfaceDumpFilter", interface_args,
     "interfaces (in this stand-in only over gRPC)"},
    {5, "object-dump", "CommandUUID", object_args, "one object (not in this stand-in)"},
    {6, "flow-dump", "FlowGetRequest", flow_args, "flows (this stand-in holds none)"},
    {7, "flow-trace", "FlowTracerSpec", flow_trace_args, "the way of one flow (this stand-in traces none)"},
    {10, "datapath-assist", "DatapathAssist", datapath_assist_args,
     "data path assist (not in this stand-in)"},
    {8, "datapath-assist-cps", "DatapathAssistCps", datapath_assist_cps_args,
     "its rate (not in this stand-in)"},
    {9, "interrupt-dump", "IntrDumpArgs", interrupt_args, "interrupts (this stand-in has none)"},
};

std::string help(const cmd_ctxt_s &) {
    std::string text = fmt::format("{:<20} {:<20} {}\n", "command", "arguments", "what it shows");
    for (const auto &command : k_commands) {
        text +=
            fmt::format("{:<20} {:<20} {}\n", command.name, command.args ? command.args : "-", command.about);
    }
    return text;
}

// A command that takes arguments shows how it understood them.
std::string output_of(const command_s &command, const cmd_ctxt_s &ctxt) {
    if (!command.args) {
        return command.print(ctxt);
    }
    return fmt::format("{}: {}\n{}", command.name, command.about,
                       ctxt.args_valid ? command.print(ctxt) : "no arguments\n");
}

void remember(const cmd_ctxt_s &ctxt) {
    std::lock_guard guard(g_lock);
    g_last_command = ctxt;
}

}  // namespace

std::optional<cmd_ctxt_s> last_command() {
    std::lock_guard guard(g_lock);
    return g_last_command;
}

void forget_last_command() {
    std::lock_guard guard(g_lock);
    g_last_command.reset();
}

}  // namespace sim

sdk::sdk_ret_t debug::nyx_handle_cmd(cmd_ctxt_s *ctxt) {
    sim::remember(*ctxt);
    if (sim::faults_armed()) {
        if (const auto ret = sim::injected_fault("debug::nyx_handle_cmd")) {
            return ret;
        }
    }
    const uint32_t cmd = ctxt->cmd;
    const auto *command = std::ranges::find(sim::k_commands, cmd, &sim::command_s::cmd);
    if (command == std::end(sim::k_commands)) {
        return sdk::SDK_RET_INVALID_OPERATION;
    }
    return sim::write_output(ctxt->io_fd, sim::output_of(*command, *ctxt));
}
