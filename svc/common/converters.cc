#include "svc/common/converters.h"

#include <cstdio>
#include <cstring>

#include "svc/common/bytes.h"

sdk::sdk_ret_t nyx_obj_key_proto_to_api_spec(nyx_obj_key_s *key, const std::string &proto_key) {
    if (proto_key.size() <= sizeof(key->id)) {
        *key = {};
        svc::store_bytes(key->id, proto_key);
    }
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t ippfx_proto_spec_to_api_spec(ip_prefix_s *pfx, const types::IPPrefix &proto) {
    pfx->len = static_cast<uint8_t>(proto.len());
    const ip_addr_s addr = svc::ip_addr_to_api(proto.addr());
    const uint32_t longest = addr.af == IP_AF_IPV4 ? 32 : 128;
    if (addr.af != IP_AF_NIL && proto.len() > longest) {
        return sdk::SDK_RET_INVALID_ARG;
    }
    if (addr.af == IP_AF_NIL) {
        pfx->addr.af = IP_AF_NIL;
        return sdk::SDK_RET_INVALID_ARG;
    }
    pfx->addr = addr;
    return sdk::SDK_RET_OK;
}

char *macaddr2str(const uint8_t *mac, bool upper_case) {
    constexpr uint8_t k_slots = 4;
    thread_local char macaddr_str[k_slots][20];
    thread_local uint8_t macaddr_str_next = 0;
    char *text = macaddr_str[macaddr_str_next++ % k_slots];
    snprintf(text, sizeof(macaddr_str[0]),
             upper_case ? "%02X:%02X:%02X:%02X:%02X:%02X" : "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1],
             mac[2], mac[3], mac[4], mac[5]);
    return text;
}

nyx_obj_key_s svc::key_to_api(const std::string &id) {
    nyx_obj_key_s key = k_nyx_obj_key_invalid;
    (void)nyx_obj_key_proto_to_api_spec(&key, id);
    return key;
}

std::string svc::key_to_proto(nyx_obj_key_s key) {
    return std::string(reinterpret_cast<const char *>(key.id), sizeof(key.id));
}

ip_addr_s svc::ip_addr_to_api(const types::IPAddress &proto) {
    ip_addr_s ip{};
    if (proto.af() == types::IP_AF_INET) {
        ip.af = IP_AF_IPV4;
        const uint32_t v4 = proto.v4_addr();
        memcpy(ip.addr, &v4, sizeof(v4));
    } else if (proto.af() == types::IP_AF_INET6) {
        ip.af = IP_AF_IPV6;
        store_bytes(ip.addr, proto.v6_addr());
    }
    return ip;
}

mac_addr_s svc::mac_addr_to_api(uint64_t mac) {
    mac_addr_s api;
    for (uint8_t i = 0; i < sizeof(api.bytes); i++) {
        api.bytes[i] = static_cast<uint8_t>(mac >> (40 - 8 * i));
    }
    return api;
}

uint64_t svc::mac_addr_to_proto(mac_addr_s mac) {
    uint64_t number = 0;
    for (const uint8_t byte : mac.bytes) {
        number = number << 8 | byte;
    }
    return number;
}

bool svc::has_family(const ip_prefix_s &pfx) {
    return pfx.addr.af == IP_AF_IPV4 || pfx.addr.af == IP_AF_IPV6;
}

void svc::ip_prefix_to_proto(types::IPPrefix *proto, const ip_prefix_s &pfx) {
    auto *addr = proto->mutable_addr();
    if (pfx.addr.af == IP_AF_IPV4) {
        uint32_t v4;
        memcpy(&v4, pfx.addr.addr, sizeof(v4));
        addr->set_af(types::IP_AF_INET);
        addr->set_v4_addr(v4);
    } else {
        addr->set_af(types::IP_AF_INET6);
        addr->set_v6_addr(pfx.addr.addr, sizeof(pfx.addr.addr));
    }
    proto->set_len(pfx.len);
}
