// The pipeline's implementation objects of LIFs, and the table that holds them. Rules for all operations: sdk_ret.h.
//
// The services use the members below, and never make or copy an object: what else the classes hold, and what derives
// from them, belongs to the agent. Accessors can't fail.

#pragma once

#include <cstdint>

namespace sdk::lib {

// The agent's hash table.
class ht {
 public:
    // Returns the entry with this key, as the table's user stored it, or null when there is none. `key` has as many
    // bytes as the keys of the table.
    void *lookup(const void *key);
};

}  // namespace sdk::lib

namespace api::impl {

// What all pipelines' implementation objects derive from.
class lif_impl {
 public:
    virtual ~lif_impl();
};

struct mac_vlan_filter_s {
    uint64_t mac;  // in the low 48 bits
    uint32_t vlan;
} __attribute__((packed));
static_assert(sizeof(mac_vlan_filter_s) == 12);

// A LIF in the quill pipeline.
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

    // The number that the classic view reports as impl_value; the platform chooses which one.
    uint32_t impl_value() const;

    // Each stores at most `capacity` filters in the array, and in `count` how many it stored; the services pass 64
    // and trust no larger count. The order is that in which clients see the filters.
    void mac_filters(uint32_t *count, uint32_t capacity, uint64_t *macs) const;  // in the low 48 bits
    void vlan_filters(uint32_t *count, uint32_t capacity, uint32_t *vlans) const;
    void mac_vlan_filters(uint32_t *count, uint32_t capacity, mac_vlan_filter_s *filters) const;
};

// The table of implementation objects by LIF id: a key is a uint16_t, the lif_id of nyx_lif_info_s, and an entry
// points to the lif_impl part of its object, which lives at least as long as the request that looks it up. A LIF
// without an entry, or whose object is not a quill_lif_impl, is reported without the values above.
sdk::lib::ht *lif_impl_db();

}  // namespace api::impl
