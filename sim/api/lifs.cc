#include "sim/api/lifs.h"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "sim/card/card.h"
#include "sim/card/card_lifs.h"
#include "sim/card/if_records.h"
#include "sim/faults/faults.h"

namespace sim {

namespace {

struct lif_s {
    nyx_lif_info_s info = {};
    uint64_t stats_resets = 0;
    lif_counts counts = {};  // since the last of them

    nyx_lif_info_s counted() const {
        nyx_lif_info_s with_counts = info;
        with_counts.lif_word_1 += static_cast<uint32_t>(counts[LIF_RX_PACKETS]);
        with_counts.lif_word_2 += static_cast<uint32_t>(counts[LIF_TX_PACKETS]);
        with_counts.lif_word_3 += static_cast<uint32_t>(counts[LIF_DROPS]);
        return with_counts;
    }
};

struct lifs_s {
    std::map<nyx_obj_key_s, lif_s, key_less> by_key;
    std::map<uint16_t, api::impl::lif_impl *> impls;
    std::vector<std::unique_ptr<api::impl::lif_impl>> impl_objects;  // that tests put
};

std::shared_mutex g_lock;

void set_impl(lifs_s *lifs, uint16_t lif_id, std::unique_ptr<api::impl::lif_impl> object) {
    lifs->impls[lif_id] = object.get();
    lifs->impl_objects.push_back(std::move(object));
}

using impls = std::map<uint16_t, std::unique_ptr<api::impl::lif_impl>>;

impls make_card_impls() {
    impls made;
    for (auto &[lif_id, answers] : card_lif_impls()) {
        made[lif_id] = make_lif_impl(std::move(answers));
    }
    return made;
}

void fill_from_card(lifs_s *lifs) {
    static const impls card_impls = make_card_impls();
    for (const auto &info : card_lifs()) {
        lifs->by_key[info.key].info = info;
    }
    for (const auto &[lif_id, object] : card_impls) {
        lifs->impls[lif_id] = object.get();
    }
}

lifs_s &lifs() {
    static lifs_s lifs = [] {
        lifs_s start;
        fill_from_card(&start);
        return start;
    }();
    return lifs;
}

}  // namespace

void put_lif(const nyx_lif_info_s &info) {
    std::unique_lock guard(g_lock);
    lifs().by_key[info.key].info = info;
}

void put_lif_impl(uint16_t lif_id, std::unique_ptr<api::impl::lif_impl> object) {
    std::unique_lock guard(g_lock);
    set_impl(&lifs(), lif_id, std::move(object));
}

void count_at_lif(uint8_t number, const lif_counts &growth) {
    std::unique_lock guard(g_lock);
    auto &counts = lifs().by_key[lif_key(number)].counts;
    for (size_t i = 0; i < growth.size(); i++) {
        counts[i] += growth[i];
    }
}

uint64_t lif_stats_resets(const nyx_obj_key_s &key) {
    std::shared_lock guard(g_lock);
    const auto lif = lifs().by_key.find(key);
    return lif == lifs().by_key.end() ? 0 : lif->second.stats_resets;
}

void reset_lifs() {
    std::unique_lock guard(g_lock);
    lifs().by_key.clear();
    lifs().impls.clear();
    fill_from_card(&lifs());
}

}  // namespace sim

sdk::sdk_ret_t nyx_lif_read(nyx_obj_key_s *key, nyx_lif_info_s *info) {
    if (const auto ret = sim::fault("nyx_lif_read", sim::key_bytes(*key))) {
        return ret;
    }
    std::shared_lock guard(sim::g_lock);
    const auto lif = sim::lifs().by_key.find(*key);
    if (lif == sim::lifs().by_key.end()) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    *info = lif->second.counted();
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t nyx_lif_read_all(nyx_read_cb_t callback, void *ctxt) {
    sim::begin_operation();
    std::vector<nyx_lif_info_s> records;
    {
        std::shared_lock guard(sim::g_lock);
        for (const auto &[key, lif] : sim::lifs().by_key) {
            records.push_back(lif.counted());
        }
    }
    return sim::walk(
        "nyx_lif_read_all", records, [](const nyx_lif_info_s &info) { return sim::key_bytes(info.key); },
        [&](nyx_lif_info_s &info) { callback(&info, ctxt); });
}

sdk::sdk_ret_t nyx_lif_stats_reset(nyx_obj_key_s *key) {
    if (const auto ret =
            sim::fault("nyx_lif_stats_reset", key ? sim::key_bytes(*key) : std::span<const uint8_t>())) {
        return ret;
    }
    std::unique_lock guard(sim::g_lock);
    auto &by_key = sim::lifs().by_key;
    const auto [first, last] = key ? by_key.equal_range(*key) : std::pair(by_key.begin(), by_key.end());
    if (key && first == last) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    for (auto lif = first; lif != last; ++lif) {
        lif->second.stats_resets++;
        lif->second.counts = {};
    }
    return sdk::SDK_RET_OK;
}

sdk::lib::ht *api::impl::lif_impl_db() {
    static sdk::lib::ht db;
    return &db;
}

void *sdk::lib::ht::lookup(const void *key) {
    uint16_t lif_id;
    memcpy(&lif_id, key, sizeof(lif_id));
    std::shared_lock guard(sim::g_lock);
    const auto impl = sim::lifs().impls.find(lif_id);
    return impl == sim::lifs().impls.end() ? nullptr : impl->second;
}
