#include "svc/channel/cfg_msg.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace types;

uint32_t look_up(std::string_view type, int op) {
    const auto entry = g_svc_cfg_msg_map.find({type, static_cast<ServiceRequestOp>(op)});
    return entry == g_svc_cfg_msg_map.end() ? CFG_MSG_NONE : entry->second;
}

TEST(RequestTypeTable, HoldsEachIdentifierOnceAndLeavesTheGaps) {
    std::set<uint32_t> identifiers, expected;
    for (const auto &[key, identifier] : g_svc_cfg_msg_map) {
        identifiers.insert(identifier);
    }
    for (uint32_t identifier = 1; identifier <= 128; identifier++) {
        if (identifier != 6 && (identifier < 85 || identifier > 88)) {
            expected.insert(identifier);
        }
    }
    EXPECT_EQ(g_svc_cfg_msg_map.size(), 123u);
    EXPECT_EQ(identifiers, expected);
}

TEST(RequestTypeTable, FindsByTypeAndOperation) {
    struct {
        const char *type;
        int op;
        uint32_t identifier;
    } const cases[] = {
        {"nyx.VPCRequest", SERVICE_OP_CREATE, 1},
        {"nyx.VPCRequest", SERVICE_OP_UPDATE, 2},
        {"nyx.VPCDeleteRequest", SERVICE_OP_DELETE, 3},
        {"nyx.VPCGetRequest", SERVICE_OP_READ, 4},
        {"nyx.VPCPeerRequest", SERVICE_OP_CREATE, 5},
        {"nyx.VPCPeerDeleteRequest", SERVICE_OP_DELETE, 7},
        {"nyx.VPCPeerGetRequest", SERVICE_OP_READ, 8},
        {"nyx.LifGetRequest", SERVICE_OP_READ, 41},
        {"nyx.DHCPPolicyRequest", SERVICE_OP_CREATE, 42},
        {"nyx.NatPortBlockGetRequest", SERVICE_OP_READ, 48},
        {"nyx.NhGroupRequest", SERVICE_OP_UPDATE, 54},
        {"nyx.TunnelGetRequest", SERVICE_OP_READ, 84},
        {"nyx.DeviceRequest", SERVICE_OP_CREATE, 89},
        {"nyx.CommandMessage", SERVICE_OP_NONE, 93},
        {"nyx.IpsecSAEncryptDeleteRequest", SERVICE_OP_DELETE, 95},
        {"nyx.IpsecSADecryptRequest", SERVICE_OP_CREATE, 97},
        {"nyx.HeapGetRequest", SERVICE_OP_READ, 100},
        {"nyx.RelocationRequest", SERVICE_OP_CREATE, 101},
        {"nyx.RelocationAbortRequest", SERVICE_OP_UPDATE, 102},
        {"nyx.RelocationDeleteRequest", SERVICE_OP_DELETE, 103},
        {"nyx.L4LbPolicyRequest", SERVICE_OP_UPDATE, 114},
        {"nyx.MeterRuleGetRequest", SERVICE_OP_READ, 128},
    };
    for (const auto &wanted : cases) {
        EXPECT_EQ(look_up(wanted.type, wanted.op), wanted.identifier) << wanted.type << " op " << wanted.op;
    }
}

TEST(RequestTypeTable, NothingElseMatches) {
    const std::pair<const char *, int> misses[] = {
        {"nyx.VPCRequest", SERVICE_OP_DELETE},
        {"nyx.VPCRequest", SERVICE_OP_NONE},
        {"nyx.VPCPeerRequest", SERVICE_OP_UPDATE},
        {"nyx.NatPortBlockRequest", SERVICE_OP_UPDATE},
        {"nyx.RelocationRequest", SERVICE_OP_UPDATE},
        {"nyx.RelocationAbortRequest", SERVICE_OP_CREATE},
        {"nyx.CommandMessage", SERVICE_OP_CREATE},
        {"nyx.LifRequest", SERVICE_OP_CREATE},
        {"types.VPCRequest", SERVICE_OP_CREATE},
        {"nyx.vpcRequest", SERVICE_OP_CREATE},
        {"VPCRequest", SERVICE_OP_CREATE},
        {"", SERVICE_OP_NONE},
        {"nyx.VPCRequest", -1},
    };
    for (const auto &[type, op] : misses) {
        EXPECT_EQ(look_up(type, op), CFG_MSG_NONE) << type << " op " << op;
    }
}

}  // namespace
