// Debug commands of the agent's debug library, which write text to a descriptor. They arrive over the service request
// socket. Rules for all operations: sdk_ret.h, but nyx_handle_cmd is called on the service request thread and nowhere
// else.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"

// Argument area of a command context, one layout for each kind of argument. The client chooses the kind, not the
// command: a command finds the arguments of another one in `args` when a client sends them, and must cope with any
// bytes there. What the selectors, scalars and values mean is defined by the debug library. Offsets in comments count
// from the start of the context.

struct mapping_dump_args_s {
    uint8_t key_present;  // 16: 0 or 1; with 0 only dump_type is set
    uint8_t reserved_1[3];
    uint32_t key_kind;  // 20: 1 L2 key, 2 L3 key
    uint32_t hw_id;     // 24
    union {
        mac_addr_s mac;  // 28, of an L2 key
        ip_addr_s ip;    // 28, of an L3 key
    } address;
    uint8_t reserved_2[3];
    uint32_t dump_type;  // 48: 0 to 3; 0 and 2 go with an L2 key, 1 and 3 with an L3 key
} __attribute__((packed));

struct interface_dump_args_s {
    uint32_t if_type;   // 16: interface type of the agent API; 0 when the client gave a key, or neither
    nyx_obj_key_s key;  // 20: all zero when the client gave a type, or neither
} __attribute__((packed));

struct flow_trace_args_s {
    nyx_obj_key_s key;  // 16
    uint8_t reserved[17];
    mac_addr_s mac_1;  // 50
    mac_addr_s mac_2;  // 56
    ip_addr_s ip_1;    // 62
    ip_addr_s ip_2;    // 79
    ip_addr_s ip_3;    // 96
    uint8_t ip_proto;  // 113
    uint32_t scalar;   // 114
    union {
        struct {
            uint16_t src_port;            // 118
            uint16_t dst_port;            // 120
        } __attribute__((packed)) ports;  // for ip_proto 6 (TCP) and 17 (UDP)
        struct {
            uint8_t type;                // 118
            uint8_t code;                // 119
            uint16_t identifier;         // 120
        } __attribute__((packed)) icmp;  // for ip_proto 1 (ICMP)
    } l4;
} __attribute__((packed));

struct datapath_assist_cps_args_s {
    uint8_t selector;  // 16
    uint8_t reserved[3];
    uint32_t value;  // 20
} __attribute__((packed));

// Command context. Both descriptors belong to the caller, which closes them after the command.
struct cmd_ctxt_s {
    int32_t sock_fd;     // connection of the client; the reply follows there after the command
    int32_t io_fd;       // where the command writes its text; -1 when the client passed no descriptor
    uint32_t cmd;        // number of the command, 0 to 35; 0 for a number that clients don't have
    uint8_t args_valid;  // 1 when args holds arguments; 0: none, of an unknown type, or an all-zero id
    uint8_t reserved[3];
    union {
        mapping_dump_args_s mapping_dump;
        interface_dump_args_s interface_dump;
        nyx_obj_key_s key;
        uint16_t flow_selector;
        flow_trace_args_s flow_trace;
        uint32_t datapath_assist_value;
        datapath_assist_cps_args_s datapath_assist_cps;
        uint8_t interrupt_selector;
    } __attribute__((packed)) args;
} __attribute__((packed));

static_assert(offsetof(cmd_ctxt_s, sock_fd) == 0);
static_assert(offsetof(cmd_ctxt_s, io_fd) == 4);
static_assert(offsetof(cmd_ctxt_s, cmd) == 8);
static_assert(offsetof(cmd_ctxt_s, args_valid) == 12);
static_assert(offsetof(cmd_ctxt_s, args) == 16);
static_assert(offsetof(cmd_ctxt_s, args.mapping_dump.key_present) == 16);
static_assert(offsetof(cmd_ctxt_s, args.mapping_dump.key_kind) == 20);
static_assert(offsetof(cmd_ctxt_s, args.mapping_dump.hw_id) == 24);
static_assert(offsetof(cmd_ctxt_s, args.mapping_dump.address.mac) == 28);
static_assert(offsetof(cmd_ctxt_s, args.mapping_dump.address.ip) == 28);
static_assert(offsetof(cmd_ctxt_s, args.mapping_dump.dump_type) == 48);
static_assert(offsetof(cmd_ctxt_s, args.interface_dump.if_type) == 16);
static_assert(offsetof(cmd_ctxt_s, args.interface_dump.key) == 20);
static_assert(offsetof(cmd_ctxt_s, args.key) == 16);
static_assert(offsetof(cmd_ctxt_s, args.flow_selector) == 16);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.key) == 16);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.mac_1) == 50);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.mac_2) == 56);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.ip_1) == 62);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.ip_2) == 79);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.ip_3) == 96);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.ip_proto) == 113);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.scalar) == 114);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.l4.ports.src_port) == 118);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.l4.ports.dst_port) == 120);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.l4.icmp.type) == 118);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.l4.icmp.code) == 119);
static_assert(offsetof(cmd_ctxt_s, args.flow_trace.l4.icmp.identifier) == 120);
static_assert(offsetof(cmd_ctxt_s, args.datapath_assist_value) == 16);
static_assert(offsetof(cmd_ctxt_s, args.datapath_assist_cps.selector) == 16);
static_assert(offsetof(cmd_ctxt_s, args.datapath_assist_cps.value) == 20);
static_assert(offsetof(cmd_ctxt_s, args.interrupt_selector) == 16);
static_assert(sizeof(cmd_ctxt_s) == 122);

namespace debug {

// Runs one command on the calling thread, and writes its text to io_fd. The client receives the translated code,
// after whatever was written. Any code will do for an unknown command, arguments that don't fit, or a missing
// descriptor.
//
// Whatever the command waits for holds up other commands and the heartbeat, so bound it. In an agent that gave no
// executor (svc/executor.h) the descriptor can be a pipe or socket of a stranger who never reads, a file on a slow
// disk, or not open for writing. SIGPIPE, SIGXFSZ and SIGTTOU are blocked while the command runs: writing to a peer
// that has gone fails with EPIPE.
sdk::sdk_ret_t nyx_handle_cmd(cmd_ctxt_s *ctxt);

}  // namespace debug
