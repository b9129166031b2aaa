#include "sim/card/if_records.h"

#include <mutex>
#include <shared_mutex>

#include "sim/card/card.h"

namespace sim {

namespace {

struct holder_s {
    std::mutex change_lock;  // held during a whole change, so that changes don't overwrite each other
    std::shared_mutex lock;  // protects only the pointer
    std::shared_ptr<const if_records_s> records = std::make_shared<if_records_s>(card_records());
};

holder_s &holder() {
    static holder_s holder;
    return holder;
}

}  // namespace

std::shared_ptr<const if_records_s> if_records() {
    std::shared_lock guard(holder().lock);
    return holder().records;
}

sdk::sdk_ret_t change_if_records(std::span<const if_change> changes) {
    std::lock_guard change_guard(holder().change_lock);
    const auto next = std::make_shared<if_records_s>(*if_records());
    for (const auto &change : changes) {
        if (const auto ret = change(*next)) {
            return ret;
        }
    }
    std::unique_lock guard(holder().lock);
    holder().records = next;
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t change_if_records(const if_change &change) { return change_if_records(std::span(&change, 1)); }

sdk::sdk_ret_t copy_if_record(const if_record_map &records, const nyx_obj_key_s &key, nyx_if_info_s *info) {
    const auto record = records.find(key);
    if (record == records.end()) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    *info = record->second;
    return sdk::SDK_RET_OK;
}

}  // namespace sim
