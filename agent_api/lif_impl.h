// The pipeline's implementation objects of LIFs, and the table that holds them.

#pragma once

#include <cstdint>

namespace sdk::lib {

// The agent's hash table, as far as services see it.
class ht {
 public:
    // The entry with this key, as the table's user stored it; null when there is none. Any thread.
    void *lookup(const void *key);
};

}  // namespace sdk::lib

namespace api::impl {

class lif_impl {
 public:
    virtual ~lif_impl();
};

struct mac_vlan_filter_s {
    uint64_t mac;  // in the low 48 bits
    uint32_t vlan;
} __attribute__((packed));
static_assert(sizeof(mac_vlan_filter_s) == 12);

// A LIF in the quill pipeline. Any thread.
class quill_lif_impl : public lif_impl {
 public:
    ~quill_lif_impl() override;

    bool vlan_insert() const;
    bool vlan_strip() const;
    bool rdma() const;
    bool rdma_sniff() const;
    bool trunk() const;

    bool broadcast() const;
    bool all_multicast() const;
    bool promiscuous() const;

    uint32_t pinned_if_idx() const;

    // The number that the classic view reports beside the others; which one is the platform's choice.
    uint32_t impl_value() const;

    // Each stores at most `capacity` filters, and in `count` how many it stored.
    void mac_filters(uint32_t *count, uint32_t capacity, uint64_t *macs) const;  // in the low 48 bits
    void vlan_filters(uint32_t *count, uint32_t capacity, uint32_t *vlans) const;
    void mac_vlan_filters(uint32_t *count, uint32_t capacity, mac_vlan_filter_s *filters) const;
};

// Implementation objects by LIF id (a uint16_t, the lif_id of nyx_lif_info_s). The entries are lif_impl objects
// that live at least as long as the request that looks them up.
sdk::lib::ht *lif_impl_db();

}  // namespace api::impl
