// The interface API: interfaces of all kinds, and their records, which it shares with the port API (port.h). Rules
// for all operations: sdk_ret.h.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/link_event_tracer.h"
#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"

// The types that the services know. The agent has others: the services report such an interface with its key, states
// and index only, and never create one.
enum nyx_if_type_e : uint32_t {
    NYX_IF_TYPE_NONE = 0,
    NYX_IF_TYPE_ETH = 1,  // a physical Ethernet port
    NYX_IF_TYPE_UPLINK = 4,
    NYX_IF_TYPE_L3 = 6,
    NYX_IF_TYPE_LOOPBACK = 8,
    NYX_IF_TYPE_CONTROL = 9,
    NYX_IF_TYPE_HOST = 10,
};

// Administrative and operational states of interfaces and LIFs. Clients see 1 and 2 exchanged, and 0 for other
// values.
enum nyx_state_e : uint32_t {
    NYX_STATE_NONE = 0,
    NYX_STATE_DOWN = 1,
    NYX_STATE_UP = 2,
};

namespace sdk::types {

enum port_type_t : uint32_t {
    PORT_TYPE_NONE = 0,
    PORT_TYPE_DATA = 1,
    PORT_TYPE_MGMT = 2,
};

}  // namespace sdk::types

// Encapsulation. The member of `value` follows from the type: 1 vlan, 2 qinq, 3 to 5 word; type 0 has none, and a
// client's type above 5 arrives as type 0.
struct encap_s {
    uint32_t type;
    union {
        uint32_t word;
        uint16_t vlan;
        struct {
            uint16_t tag_1;
            uint16_t tag_2;
        } __attribute__((packed)) qinq;
    } __attribute__((packed)) value;
} __attribute__((packed));

struct uplink_spec_s {
    nyx_obj_key_s port;  // of the port that the uplink belongs to
} __attribute__((packed));

struct l3_if_spec_s {
    nyx_obj_key_s vpc;
    // Family 0: none, or one that the client gave wrongly. The services have refused two prefixes of one family.
    ip_prefix_s prefix[2];
    nyx_obj_key_s port;
    encap_s encap;
    mac_addr_s mac;
} __attribute__((packed));

struct bgp_community_s {
    uint16_t part_1;
    uint16_t part_2;
} __attribute__((packed));

struct loopback_if_spec_s {
    ip_prefix_s prefix;
    uint8_t num_bgp_community;  // 0 or 1 in a spec that the services pass in
    bgp_community_s bgp_community[16];
} __attribute__((packed));

struct control_if_spec_s {
    ip_prefix_s prefix;
    mac_addr_s mac;
} __attribute__((packed));

// The meaning of the flags, and of the numbered actions and modes, is defined by the agent.
struct host_if_spec_s {
    uint8_t flag_1;
    uint8_t flag_2;
    nyx_obj_key_s ref;  // an object that the interface refers to; all zero: none
    mac_addr_s mac;
    uint32_t flow_log_action;   // 0, 1 or 2
    uint8_t has_flow_log_spec;  // 1: log_flag holds the interface's own flow-log settings; only with action 2
    uint8_t log_flag[3];
    uint32_t learn_mode;      // 0, 1 or 2; with 0 the next two are all zero
    uint32_t aging_timeout;   // in seconds
    uint8_t learn_source[3];  // 0 or 1 each
    uint8_t reserved;
    uint8_t flag_3;
    char name[16];  // zero-terminated
} __attribute__((packed));

// Settings of a port, whose meaning is defined by the port API. Three-valued: 0 (none), 1 or 2; all other values are
// reported as 0.
struct port_spec_s {
    uint32_t setting_a;  // three-valued
    sdk::types::port_type_t port_type;
    uint32_t setting_b;  // 0 (none) to 7
    uint32_t setting_c;  // three-valued
    uint8_t flag_a;
    uint32_t number_a;
    uint32_t number_b;
    uint32_t setting_d;  // three-valued
    uint8_t flag_b;
    uint8_t flag_c;
    uint32_t setting_e;  // three-valued
    uint32_t number_c;
} __attribute__((packed));

// Specification of an interface. The type selects the member of the union. Only host interfaces have mirror sessions.
struct nyx_if_spec_s {
    nyx_obj_key_s key;
    nyx_if_type_e type;
    nyx_state_e admin_state;
    union {
        uplink_spec_s uplink;
        l3_if_spec_s l3;
        loopback_if_spec_s loopback;
        control_if_spec_s control;
        host_if_spec_s host;
        port_spec_s port;
    } __attribute__((packed));
    uint8_t num_tx_mirror_session;
    nyx_obj_key_s tx_mirror_session[8];
    uint8_t num_rx_mirror_session;
    nyx_obj_key_s rx_mirror_session[8];
} __attribute__((packed));

static_assert(offsetof(nyx_if_spec_s, key) == 0);
static_assert(offsetof(nyx_if_spec_s, type) == 17);
static_assert(offsetof(nyx_if_spec_s, admin_state) == 21);
static_assert(offsetof(nyx_if_spec_s, uplink.port) == 25);
static_assert(offsetof(nyx_if_spec_s, l3.vpc) == 25);
static_assert(offsetof(nyx_if_spec_s, l3.prefix[0]) == 42);
static_assert(offsetof(nyx_if_spec_s, l3.prefix[1]) == 60);
static_assert(offsetof(nyx_if_spec_s, l3.port) == 78);
static_assert(offsetof(nyx_if_spec_s, l3.encap.type) == 95);
static_assert(offsetof(nyx_if_spec_s, l3.encap.value.word) == 99);
static_assert(offsetof(nyx_if_spec_s, l3.encap.value.vlan) == 99);
static_assert(offsetof(nyx_if_spec_s, l3.encap.value.qinq.tag_1) == 99);
static_assert(offsetof(nyx_if_spec_s, l3.encap.value.qinq.tag_2) == 101);
static_assert(offsetof(nyx_if_spec_s, l3.mac) == 103);
static_assert(offsetof(nyx_if_spec_s, loopback.prefix) == 25);
static_assert(offsetof(nyx_if_spec_s, loopback.num_bgp_community) == 43);
static_assert(offsetof(nyx_if_spec_s, loopback.bgp_community) == 44);
static_assert(offsetof(nyx_if_spec_s, control.prefix) == 25);
static_assert(offsetof(nyx_if_spec_s, control.mac) == 43);
static_assert(offsetof(nyx_if_spec_s, host.flag_1) == 25);
static_assert(offsetof(nyx_if_spec_s, host.flag_2) == 26);
static_assert(offsetof(nyx_if_spec_s, host.ref) == 27);
static_assert(offsetof(nyx_if_spec_s, host.mac) == 44);
static_assert(offsetof(nyx_if_spec_s, host.flow_log_action) == 50);
static_assert(offsetof(nyx_if_spec_s, host.has_flow_log_spec) == 54);
static_assert(offsetof(nyx_if_spec_s, host.log_flag) == 55);
static_assert(offsetof(nyx_if_spec_s, host.learn_mode) == 58);
static_assert(offsetof(nyx_if_spec_s, host.aging_timeout) == 62);
static_assert(offsetof(nyx_if_spec_s, host.learn_source) == 66);
static_assert(offsetof(nyx_if_spec_s, host.flag_3) == 70);
static_assert(offsetof(nyx_if_spec_s, host.name) == 71);
static_assert(offsetof(nyx_if_spec_s, port.setting_a) == 25);
static_assert(offsetof(nyx_if_spec_s, port.port_type) == 29);
static_assert(offsetof(nyx_if_spec_s, port.setting_b) == 33);
static_assert(offsetof(nyx_if_spec_s, port.setting_c) == 37);
static_assert(offsetof(nyx_if_spec_s, port.flag_a) == 41);
static_assert(offsetof(nyx_if_spec_s, port.number_a) == 42);
static_assert(offsetof(nyx_if_spec_s, port.number_b) == 46);
static_assert(offsetof(nyx_if_spec_s, port.setting_d) == 50);
static_assert(offsetof(nyx_if_spec_s, port.flag_b) == 54);
static_assert(offsetof(nyx_if_spec_s, port.flag_c) == 55);
static_assert(offsetof(nyx_if_spec_s, port.setting_e) == 56);
static_assert(offsetof(nyx_if_spec_s, port.number_c) == 60);
static_assert(offsetof(nyx_if_spec_s, num_tx_mirror_session) == 109);
static_assert(offsetof(nyx_if_spec_s, tx_mirror_session) == 110);
static_assert(offsetof(nyx_if_spec_s, num_rx_mirror_session) == 246);
static_assert(offsetof(nyx_if_spec_s, rx_mirror_session) == 247);
static_assert(sizeof(nyx_if_spec_s) == 383);

struct uplink_status_s {
    uint16_t lldp_if_index;  // for interface_lldp.h
} __attribute__((packed));

struct host_if_status_s {
    uint8_t num_member;  // at most 8; a larger number is read as 8
    nyx_obj_key_s member[8];
    char name[16];  // zero-terminated
    mac_addr_s mac;
} __attribute__((packed));

struct port_status_s {
    uint32_t link_state;      // three-valued
    uint32_t link_setting_b;  // values of port_spec_s::setting_b
    uint8_t link_flag;
    uint32_t link_number;
    uint32_t link_setting_c;  // three-valued
    uint32_t xcvr_number;     // index into sdk::platform::g_xcvr plus 1
    uint32_t xcvr_value[6];
    uint8_t xcvr_id[256];    // identification memory: SFF-8472 A0h, or SFF-8636 upper page 00h from offset 0
    uint32_t link_sm_state;  // 1 to 24; all other values are reported as 0
    uint32_t status_word_1;
    uint32_t status_word_2;
    // Null when the port has none. The port API's, which keeps it in place as long as services run: it is read after
    // the operation that filled this record has returned.
    const link_event_tracer_s *link_event_tracer;
} __attribute__((packed));

// Status of an interface: the type in its spec selects the member of the union.
struct nyx_if_status_s {
    uint32_t if_index;  // of a port: bits 16 to 23 are the number of the port
    nyx_state_e oper_state;
    union {
        uplink_status_s uplink;
        host_if_status_s host;
        port_status_s port;
    } __attribute__((packed));
} __attribute__((packed));

static_assert(offsetof(nyx_if_status_s, if_index) == 0);
static_assert(offsetof(nyx_if_status_s, oper_state) == 4);
static_assert(offsetof(nyx_if_status_s, uplink.lldp_if_index) == 8);
static_assert(offsetof(nyx_if_status_s, host.num_member) == 8);
static_assert(offsetof(nyx_if_status_s, host.member) == 9);
static_assert(offsetof(nyx_if_status_s, host.name) == 145);
static_assert(offsetof(nyx_if_status_s, host.mac) == 161);
static_assert(offsetof(nyx_if_status_s, port.link_state) == 8);
static_assert(offsetof(nyx_if_status_s, port.link_setting_b) == 12);
static_assert(offsetof(nyx_if_status_s, port.link_flag) == 16);
static_assert(offsetof(nyx_if_status_s, port.link_number) == 17);
static_assert(offsetof(nyx_if_status_s, port.link_setting_c) == 21);
static_assert(offsetof(nyx_if_status_s, port.xcvr_number) == 25);
static_assert(offsetof(nyx_if_status_s, port.xcvr_value) == 29);
static_assert(offsetof(nyx_if_status_s, port.xcvr_id) == 53);
static_assert(offsetof(nyx_if_status_s, port.link_sm_state) == 309);
static_assert(offsetof(nyx_if_status_s, port.status_word_1) == 313);
static_assert(offsetof(nyx_if_status_s, port.status_word_2) == 317);
static_assert(offsetof(nyx_if_status_s, port.link_event_tracer) == 321);
static_assert(sizeof(nyx_if_status_s) == 329);

// Statistics of a port; those of other interfaces are not read. The meaning of counters and words is defined by the
// port API.
struct nyx_if_stats_s {
    uint64_t mac_counter[89];  // a management port has the first 32
    uint32_t stats_word;
    char timing_text[30];  // zero-terminated
    uint64_t timing_word_1;
    uint64_t timing_word_2;
} __attribute__((packed));

// All that is known of an interface.
struct nyx_if_info_s {
    nyx_if_spec_s spec;
    nyx_if_status_s status;
    nyx_if_stats_s stats;
} __attribute__((packed));

static_assert(offsetof(nyx_if_info_s, spec) == 0);
static_assert(offsetof(nyx_if_info_s, status) == 383);
static_assert(offsetof(nyx_if_info_s, stats) == 712);
static_assert(offsetof(nyx_if_info_s, stats.mac_counter) == 712);
static_assert(offsetof(nyx_if_info_s, stats.stats_word) == 1424);
static_assert(offsetof(nyx_if_info_s, stats.timing_text) == 1428);
static_assert(offsetof(nyx_if_info_s, stats.timing_word_1) == 1458);
static_assert(offsetof(nyx_if_info_s, stats.timing_word_2) == 1466);
static_assert(sizeof(nyx_if_info_s) == 1474);

// Fills `info` for the interface with this key. SDK_RET_LOOKUP_FAILURE when there is none, and for nothing else:
// InterfaceCreate takes every other result, failures included, to mean that the key is in use. All failures end an
// update with their code, a delete with SDK_RET_LOOKUP_FAILURE, and a read with their code.
sdk::sdk_ret_t nyx_if_read(nyx_obj_key_s *key, nyx_if_info_s *info);

// Walks over all interfaces; the record is a nyx_if_info_s.
sdk::sdk_ret_t nyx_if_read_all(nyx_read_cb_t callback, void *ctxt);

// Adds the creation of an interface to the batch. `spec` has the type uplink, L3, loopback or control: host
// interfaces are not created here, the services store their MAC addresses for the agent's next start. nyx_if_read has
// just failed to find the key; all the same it can be in use by now, or an earlier entry of the batch can have
// created it, which is refused at once or at commit (SDK_RET_ALREADY_PRESENT fits). A refusal at once ends the
// request and destroys its own batch.
sdk::sdk_ret_t nyx_if_create(nyx_if_spec_s *spec, uint64_t batch);

// Adds to the batch that the interface with the key of `spec` takes all settings of `spec`, zeros included: there is
// no mask. nyx_if_read has just found it. The type can be that of a host interface, and can differ from the type that
// the interface has: whether that is allowed is up to the agent. Refusals as for nyx_if_create.
sdk::sdk_ret_t nyx_if_update(nyx_if_spec_s *spec, uint64_t batch);

// Adds the deletion of the interface with this key to the batch. nyx_if_read has just found it; a key that appears
// twice in the request comes twice. Refusals as for nyx_if_create.
sdk::sdk_ret_t nyx_if_delete(nyx_obj_key_s *key, uint64_t batch);
