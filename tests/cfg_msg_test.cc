#include "svc/channel/cfg_msg.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace types;

uint32_t look_up(std::string_view type, int op) {
    const auto entry = g_svc_cfg_msg_map.find({type, static_cast<ServiceRequestOp>(op)});
    return entry == g_svc_cfg_msg_map.end() ? CFG_MSG_NONE : entry->second;
}

TEST(RequestTypeTable, HoldsEachIdentifierOnce) {
    std::set<uint32_t> identifiers;
    for (const auto &[key, identifier] : g_svc_cfg_msg_map) {
        identifiers.insert(identifier);
    }
    EXPECT_EQ(g_svc_cfg_msg_map.size(), 123u);
    EXPECT_EQ(identifiers.size(), 123u);
}

// One row for each shape of object, and for each object whose identifiers are not consecutive.
TEST(RequestTypeTable, FindsByExactTypeAndOperation) {
    struct {
        const char *type;
        int op;
        uint32_t identifier;
    } const cases[] = {
        {"nyx.VPCRequest", SERVICE_OP_CREATE, 1},
        {"nyx.VPCPeerDeleteRequest", SERVICE_OP_DELETE, 7},
        {"nyx.LifGetRequest", SERVICE_OP_READ, 41},
        {"nyx.TunnelGetRequest", SERVICE_OP_READ, 84},
        {"nyx.CommandMessage", SERVICE_OP_NONE, 93},
        {"nyx.IpsecSADecryptRequest", SERVICE_OP_CREATE, 97},
        {"nyx.RelocationAbortRequest", SERVICE_OP_UPDATE, 102},
        {"nyx.RelocationDeleteRequest", SERVICE_OP_DELETE, 103},
        {"nyx.L4LbPolicyRequest", SERVICE_OP_UPDATE, 114},
        {"nyx.MeterRuleGetRequest", SERVICE_OP_READ, 128},
        {"nyx.VPCRequest", SERVICE_OP_DELETE, CFG_MSG_NONE},
        {"nyx.VPCPeerRequest", SERVICE_OP_UPDATE, CFG_MSG_NONE},
        {"nyx.LifRequest", SERVICE_OP_CREATE, CFG_MSG_NONE},
        {"nyx.CommandMessage", SERVICE_OP_CREATE, CFG_MSG_NONE},
        {"types.VPCRequest", SERVICE_OP_CREATE, CFG_MSG_NONE},
        {"nyx.vpcRequest", SERVICE_OP_CREATE, CFG_MSG_NONE},
        {"", SERVICE_OP_NONE, CFG_MSG_NONE},
        {"nyx.VPCRequest", -1, CFG_MSG_NONE},
    };
    for (const auto &wanted : cases) {
        EXPECT_EQ(look_up(wanted.type, wanted.op), wanted.identifier) << wanted.type << " op " << wanted.op;
    }
}

}  // namespace
