// Plain values that records of several libraries hold, and the callback of walks. Packed, integers in the processor's
// byte order.

#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>

// Object key: 16 bytes of identifier and a terminating byte that is zero; compared and copied as raw bytes. A shorter
// identifier of a client is followed by zeros. All zero is the invalid key.
struct nyx_obj_key_s {
    uint8_t id[16];
    uint8_t terminator;

    // Returns the identifier as 36 characters, "00112233-4455-6677-8899-aabbccddeeff". The text belongs to the
    // calling thread and is overwritten by the fourth call after this one.
    const char *str() const;

    // False for the all-zero identifier.
    bool valid() const;
} __attribute__((packed));
static_assert(sizeof(nyx_obj_key_s) == 17);

inline constexpr nyx_obj_key_s k_nyx_obj_key_invalid = {};

// Callback of a walk over objects. `record` is what the walk's comment names, `ctxt` what the walk was given. It may
// throw std::bad_alloc. Rules for walks: sdk_ret.h.
using nyx_read_cb_t = void (*)(void *record, void *ctxt);

// Address families of ip_addr_s.
enum ip_af_e : uint8_t {
    IP_AF_NIL = 0,
    IP_AF_IPV4 = 1,
    IP_AF_IPV6 = 2,
};

// IP address. IPv4: a 32-bit integer in the processor's byte order in the first 4 bytes of addr. IPv6: 16
// bytes in network order.
struct ip_addr_s {
    uint8_t af;  // ip_af_e; other values are read as IP_AF_NIL
    uint8_t addr[16];
} __attribute__((packed));
static_assert(sizeof(ip_addr_s) == 17);

// Prefix: an address and how many of its leading bits belong to the prefix. Without a family there is no prefix,
// whatever `len` holds. The services check `len`: at most 32 for IPv4, 128 for IPv6.
struct ip_prefix_s {
    ip_addr_s addr;
    uint8_t len;
} __attribute__((packed));
static_assert(sizeof(ip_prefix_s) == 18);

// MAC address in network order.
struct mac_addr_s {
    uint8_t bytes[6];
} __attribute__((packed));
static_assert(sizeof(mac_addr_s) == 6);

inline const char *nyx_obj_key_s::str() const {
    constexpr uint8_t k_slots = 4;
    thread_local char key_str[k_slots][37];
    thread_local uint8_t next_str = 0;
    char *text = key_str[next_str++ % k_slots];
    snprintf(text, sizeof(key_str[0]), "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
             id[0], id[1], id[2], id[3], id[4], id[5], id[6], id[7], id[8], id[9], id[10], id[11], id[12],
             id[13], id[14], id[15]);
    return text;
}

inline bool nyx_obj_key_s::valid() const {
    static constexpr uint8_t zero_id[sizeof(id)] = {};
    return memcmp(id, zero_id, sizeof(id)) != 0;
}
