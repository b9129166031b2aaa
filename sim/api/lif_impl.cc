#include "agent_api/lif_impl.h"

#include <algorithm>
#include <utility>

#include "sim/api/lifs.h"

namespace sim {

namespace {

// The stand-in's only class of implementation objects.
class answering_lif_impl : public api::impl::quill_lif_impl {
 public:
    explicit answering_lif_impl(lif_impl_s from) : answers(std::move(from)) {}

    const lif_impl_s answers;
};

const lif_impl_s &answers_of(const api::impl::quill_lif_impl *impl) {
    return static_cast<const answering_lif_impl *>(impl)->answers;
}

template <class Filter>
void store(const std::vector<Filter> &filters, uint32_t *count, uint32_t capacity, Filter *to) {
    *count = static_cast<uint32_t>(std::min<size_t>(filters.size(), capacity));
    std::copy_n(filters.begin(), *count, to);
}

}  // namespace

std::unique_ptr<api::impl::lif_impl> make_lif_impl(lif_impl_s answers) {
    return std::make_unique<answering_lif_impl>(std::move(answers));
}

}  // namespace sim

namespace api::impl {

lif_impl::~lif_impl() = default;
quill_lif_impl::~quill_lif_impl() = default;

bool quill_lif_impl::vlan_insert() const { return sim::answers_of(this).vlan_insert; }
bool quill_lif_impl::vlan_strip() const { return sim::answers_of(this).vlan_strip; }
bool quill_lif_impl::rdma() const { return sim::answers_of(this).rdma; }
bool quill_lif_impl::rdma_sniff() const { return sim::answers_of(this).rdma_sniff; }
bool quill_lif_impl::trunk() const { return sim::answers_of(this).trunk; }
bool quill_lif_impl::broadcast() const { return sim::answers_of(this).broadcast; }
bool quill_lif_impl::all_multicast() const { return sim::answers_of(this).all_multicast; }
bool quill_lif_impl::promiscuous() const { return sim::answers_of(this).promiscuous; }
uint32_t quill_lif_impl::pinned_if_idx() const { return sim::answers_of(this).pinned_if_idx; }
uint32_t quill_lif_impl::impl_value() const { return sim::answers_of(this).impl_value; }

void quill_lif_impl::mac_filters(uint32_t *count, uint32_t capacity, uint64_t *macs) const {
    sim::store(sim::answers_of(this).macs, count, capacity, macs);
}

void quill_lif_impl::vlan_filters(uint32_t *count, uint32_t capacity, uint32_t *vlans) const {
    sim::store(sim::answers_of(this).vlans, count, capacity, vlans);
}

void quill_lif_impl::mac_vlan_filters(uint32_t *count, uint32_t capacity, mac_vlan_filter_s *filters) const {
    sim::store(sim::answers_of(this).mac_vlans, count, capacity, filters);
}

}  // namespace api::impl
