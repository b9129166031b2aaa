// Plain values that records of several libraries hold. All packed, integers in the processor's byte order.

#pragma once

#include <cstdint>

// Object key: 16 bytes of identifier and a terminating byte, compared and copied as raw bytes. All zero is
// the invalid key.
struct nyx_obj_key_s {
    uint8_t id[16];
    uint8_t terminator;
} __attribute__((packed));
static_assert(sizeof(nyx_obj_key_s) == 17);

// Address families of ip_addr_s.
enum ip_af_e : uint8_t {
    IP_AF_NIL = 0,
    IP_AF_IPV4 = 1,
    IP_AF_IPV6 = 2,
};

// IP address. IPv4: a 32-bit integer in the processor's byte order in the first 4 bytes of addr. IPv6: 16
// bytes in network order.
struct ip_addr_s {
    uint8_t af;  // ip_af_e
    uint8_t addr[16];
} __attribute__((packed));
static_assert(sizeof(ip_addr_s) == 17);

// MAC address in network order.
struct mac_addr_s {
    uint8_t bytes[6];
} __attribute__((packed));
static_assert(sizeof(mac_addr_s) == 6);
