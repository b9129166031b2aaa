#include "svc/common/converters.h"

#include <cstring>

#include "svc/common/bytes.h"

sdk::sdk_ret_t nyx_obj_key_proto_to_api_spec(nyx_obj_key_s *key, const std::string &proto_key) {
    if (proto_key.size() <= sizeof(key->id)) {
        *key = {};
        svc::store_bytes(key->id, proto_key);
    }
    return sdk::SDK_RET_OK;
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
