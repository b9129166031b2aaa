// The records of interfaces and ports. Readers get snapshots; each change makes a new one. Any thread.

#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "agent_api/interface.h"

namespace sim {

struct key_less {
    bool operator()(const nyx_obj_key_s &a, const nyx_obj_key_s &b) const {
        return memcmp(&a, &b, sizeof(a)) < 0;
    }
};

using if_record_map = std::map<nyx_obj_key_s, nyx_if_info_s, key_less>;

struct if_records_s {
    if_record_map interfaces;
    if_record_map ports;
    uint32_t next_if_index;  // of the next interface that is created
};

// The current records; later changes don't affect them.
std::shared_ptr<const if_records_s> if_records();

using if_change = std::function<sdk::sdk_ret_t(if_records_s &)>;

// Makes all changes in their order, or none if one of them fails. Returns the code of the one that failed.
sdk::sdk_ret_t change_if_records(std::span<const if_change> changes);
sdk::sdk_ret_t change_if_records(const if_change &change);

// Copies a record to `info`; SDK_RET_LOOKUP_FAILURE if the key is unknown.
sdk::sdk_ret_t copy_if_record(const if_record_map &records, const nyx_obj_key_s &key, nyx_if_info_s *info);

inline std::span<const uint8_t> key_bytes(const nyx_obj_key_s &key) { return key.id; }

}  // namespace sim
