#include "svc/channel/command_args.h"

#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <string>

#include "nyx/debug_command.pb.h"
#include "svc/common/converters.h"

namespace {

// Interface type of the agent API for each kind of the filter.
uint32_t interface_type(int filter_type) {
    constexpr std::array<uint32_t, 7> k_types = {0, 4, 5, 6, 8, 9, 10};
    return filter_type >= 0 && filter_type < static_cast<int>(k_types.size()) ? k_types[filter_type] : 0;
}

bool fill(const nyx::MappingDumpFilter &filter, cmd_ctxt_s *ctxt) {
    constexpr uint32_t k_l2_key = 1, k_l3_key = 2;
    auto &args = ctxt->args.mapping_dump;
    const auto type = static_cast<uint32_t>(filter.type());
    args.dump_type = type < 4 ? type : 0;
    if (!filter.has_key()) {
        return true;
    }
    args.key_present = 1;
    const bool is_l2 = args.dump_type % 2 == 0;
    if (is_l2) {
        args.key_kind = k_l2_key;
        args.hw_id = filter.key().l2_key().hw_id();
        args.address.mac = svc::mac_addr_to_api(filter.key().l2_key().mac_address());
    } else {
        args.key_kind = k_l3_key;
        args.hw_id = filter.key().l3_key().hw_id();
        args.address.ip = svc::ip_addr_to_api(filter.key().l3_key().ip_address());
    }
    return true;
}

bool fill(const nyx::InterfaceDumpFilter &filter, cmd_ctxt_s *ctxt) {
    auto &args = ctxt->args.interface_dump;
    args.if_type = filter.has_type() ? interface_type(filter.type()) : 0;
    args.key = svc::key_to_api(filter.id());
    return true;
}

bool fill(const nyx::CommandUUID &uuid, cmd_ctxt_s *ctxt) {
    ctxt->args.key = svc::key_to_api(uuid.id());
    return ctxt->args.key.valid();
}

bool fill(const nyx::FlowGetRequest &request, cmd_ctxt_s *ctxt) {
    ctxt->args.flow_selector = static_cast<uint16_t>(request.selector());
    return true;
}

void fill_l4(const nyx::FlowTracerSpec &spec, flow_trace_args_s &args) {
    switch (args.ip_proto) {
        case IPPROTO_TCP:
        case IPPROTO_UDP:
            args.l4.ports.src_port = static_cast<uint16_t>(spec.ports().src_port());
            args.l4.ports.dst_port = static_cast<uint16_t>(spec.ports().dst_port());
            break;
        case IPPROTO_ICMP:
            args.l4.icmp.type = static_cast<uint8_t>(spec.icmp().type());
            args.l4.icmp.code = static_cast<uint8_t>(spec.icmp().code());
            args.l4.icmp.identifier = static_cast<uint16_t>(spec.icmp().identifier());
            break;
    }
}

bool fill(const nyx::FlowTracerSpec &spec, cmd_ctxt_s *ctxt) {
    auto &args = ctxt->args.flow_trace;
    args.key = svc::key_to_api(spec.id());
    args.mac_1 = svc::mac_addr_to_api(spec.mac_1());
    args.mac_2 = svc::mac_addr_to_api(spec.mac_2());
    args.ip_1 = svc::ip_addr_to_api(spec.ip_1());
    args.ip_2 = svc::ip_addr_to_api(spec.ip_2());
    args.ip_3 = svc::ip_addr_to_api(spec.ip_3());
    args.ip_proto = static_cast<uint8_t>(spec.ip_proto());
    args.scalar = spec.scalar();
    fill_l4(spec, args);
    return true;
}

bool fill(const nyx::DatapathAssist &assist, cmd_ctxt_s *ctxt) {
    ctxt->args.datapath_assist_value = assist.value();
    return true;
}

bool fill(const nyx::DatapathAssistCps &assist, cmd_ctxt_s *ctxt) {
    ctxt->args.datapath_assist_cps.selector = static_cast<uint8_t>(assist.selector());
    ctxt->args.datapath_assist_cps.value = assist.value();
    return true;
}

bool fill(const nyx::IntrDumpArgs &args, cmd_ctxt_s *ctxt) {
    ctxt->args.interrupt_selector = static_cast<uint8_t>(args.selector());
    return true;
}

// Each fill() returns whether the arguments count as valid.
template <class Message>
bool parse_and_fill(const std::string &bytes, cmd_ctxt_s *ctxt) {
    Message message;
    if (!message.ParseFromString(bytes)) {
        return false;
    }
    ctxt->args_valid = fill(message, ctxt);
    return true;
}

struct args_type_s {
    std::string_view name;
    bool (*parse_and_fill)(const std::string &bytes, cmd_ctxt_s *ctxt);
};

constexpr args_type_s k_args_types[] = {
    {"nyx.MappingDumpFilter", parse_and_fill<nyx::MappingDumpFilter>},
    {"nyx.InterfaceDumpFilter", parse_and_fill<nyx::InterfaceDumpFilter>},
    {"nyx.CommandUUID", parse_and_fill<nyx::CommandUUID>},
    {"nyx.FlowGetRequest", parse_and_fill<nyx::FlowGetRequest>},
    {"nyx.FlowTracerSpec", parse_and_fill<nyx::FlowTracerSpec>},
    {"nyx.DatapathAssist", parse_and_fill<nyx::DatapathAssist>},
    {"nyx.DatapathAssistCps", parse_and_fill<nyx::DatapathAssistCps>},
    {"nyx.IntrDumpArgs", parse_and_fill<nyx::IntrDumpArgs>},
};

}  // namespace

std::optional<std::string_view> any_type_name(const google::protobuf::Any &any) {
    const std::string_view url = any.type_url();
    const size_t slash = url.find('/');
    return slash == url.npos ? std::nullopt : std::optional(url.substr(slash + 1));
}

bool command_args_to_ctxt(const google::protobuf::Any &args, cmd_ctxt_s *ctxt) {
    const auto name = any_type_name(args);
    const auto type = std::ranges::find(k_args_types, name, &args_type_s::name);
    return type == std::end(k_args_types) || type->parse_and_fill(args.value(), ctxt);
}
