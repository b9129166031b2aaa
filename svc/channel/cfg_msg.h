// The request type table: what a service request is, by the type of its payload and its operation.

#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <utility>

#include "nyx/types/service.pb.h"

// The objects of the agent's configuration interface, by the word in their type names, the stem of their
// enumerators and their identifiers.
//   CRUD  create, update, delete and read, with consecutive identifiers
//   CDR   no update
//   R     only read
#define CFG_MSG_OBJECTS(CRUD, CDR, R)                 \
    CRUD(VPC, VPC, 1)                                 \
    CDR(VPCPeer, VPC_PEER, 5, 7, 8)                   \
    CRUD(Vnic, VNIC, 9)                               \
    CRUD(Subnet, SUBNET, 13)                          \
    CRUD(SecurityPolicy, SECURITY_POLICY, 17)         \
    CRUD(SecurityProfile, SECURITY_PROFILE, 21)       \
    CRUD(SecurityRule, SECURITY_RULE, 25)             \
    CRUD(Policer, POLICER, 29)                        \
    CRUD(Mapping, MAPPING, 33)                        \
    CRUD(Interface, INTERFACE, 37)                    \
    R(Lif, LIF, 41)                                   \
    CRUD(DHCPPolicy, DHCP_POLICY, 42)                 \
    CDR(NatPortBlock, NAT_PORT_BLOCK, 46, 47, 48)     \
    CRUD(Nexthop, NEXTHOP, 49)                        \
    CRUD(NhGroup, NHGROUP, 53)                        \
    CRUD(MeterPolicy, METER_POLICY, 57)               \
    CRUD(MirrorSession, MIRROR_SESSION, 61)           \
    CRUD(MirrorPolicy, MIRROR_POLICY, 65)             \
    CRUD(RouteTable, ROUTE_TABLE, 69)                 \
    CRUD(Route, ROUTE, 73)                            \
    CRUD(SvcMapping, SVC_MAPPING, 77)                 \
    CRUD(Tunnel, TUNNEL, 81)                          \
    CRUD(Device, DEVICE, 89)                          \
    CDR(IpsecSAEncrypt, IPSEC_SA_ENCRYPT, 94, 95, 96) \
    CDR(IpsecSADecrypt, IPSEC_SA_DECRYPT, 97, 98, 99) \
    R(Heap, HEAP, 100)                                \
    CDR(Relocation, RELOCATION, 101, 103, 104)        \
    CRUD(Tag, TAG, 105)                               \
    CRUD(SvcPortMap, SVC_PORT_MAP, 109)               \
    CRUD(L4LbPolicy, L4LB_POLICY, 113)                \
    CRUD(NTP, NTP, 117)                               \
    CRUD(Vni, VNI, 121)                               \
    CRUD(MeterRule, METER_RULE, 125)

// Request identifiers: CFG_MSG_<stem>_CREATE, _UPDATE, _DELETE and _READ.
enum cfg_msg_e : uint32_t {
    CFG_MSG_NONE = 0,
#define CFG_MSG_ENUM_CRUD(word, stem, first) \
    CFG_MSG_##stem##_CREATE = first, CFG_MSG_##stem##_UPDATE, CFG_MSG_##stem##_DELETE, CFG_MSG_##stem##_READ,
#define CFG_MSG_ENUM_CDR(word, stem, create, del, read) \
    CFG_MSG_##stem##_CREATE = create, CFG_MSG_##stem##_DELETE = del, CFG_MSG_##stem##_READ = read,
#define CFG_MSG_ENUM_R(word, stem, read) CFG_MSG_##stem##_READ = read,
    CFG_MSG_OBJECTS(CFG_MSG_ENUM_CRUD, CFG_MSG_ENUM_CDR, CFG_MSG_ENUM_R)
#undef CFG_MSG_ENUM_CRUD
#undef CFG_MSG_ENUM_CDR
#undef CFG_MSG_ENUM_R
        CFG_MSG_COMMAND = 93,
    CFG_MSG_RELOCATION_ABORT = 102,
};

// (full name of the payload's type, operation) -> request identifier. Exact match; no entry means
// CFG_MSG_NONE. Built when the library is loaded, read-only afterwards: any thread.
static const std::map<std::pair<std::string_view, types::ServiceRequestOp>, cfg_msg_e> g_svc_cfg_msg_map = {
#define CFG_MSG_ENTRY(type, op, msg) {{"nyx." type, types::SERVICE_OP_##op}, msg},
#define CFG_MSG_MAP_CDR(word, stem, ...)                                  \
    CFG_MSG_ENTRY(#word "Request", CREATE, CFG_MSG_##stem##_CREATE)       \
    CFG_MSG_ENTRY(#word "DeleteRequest", DELETE, CFG_MSG_##stem##_DELETE) \
    CFG_MSG_MAP_R(word, stem)
#define CFG_MSG_MAP_CRUD(word, stem, ...)                           \
    CFG_MSG_ENTRY(#word "Request", UPDATE, CFG_MSG_##stem##_UPDATE) \
    CFG_MSG_MAP_CDR(word, stem)
#define CFG_MSG_MAP_R(word, stem, ...) CFG_MSG_ENTRY(#word "GetRequest", READ, CFG_MSG_##stem##_READ)
    CFG_MSG_OBJECTS(CFG_MSG_MAP_CRUD, CFG_MSG_MAP_CDR, CFG_MSG_MAP_R)
        CFG_MSG_ENTRY("RelocationAbortRequest", UPDATE, CFG_MSG_RELOCATION_ABORT)
            CFG_MSG_ENTRY("CommandMessage", NONE, CFG_MSG_COMMAND)
#undef CFG_MSG_ENTRY
#undef CFG_MSG_MAP_CRUD
#undef CFG_MSG_MAP_CDR
#undef CFG_MSG_MAP_R
};
