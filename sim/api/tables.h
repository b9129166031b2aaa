// The stand-in's table library: P4 tables that keep their entries in memory.
//
// Only the key record identifies an entry, in exact-match and in ternary tables. Any thread.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "agent_api/sdk_ret.h"
#include "sim/card/table_info.h"

namespace sim {

// The four operations on table number `table`, with records of the sizes in table_infos().
sdk::sdk_ret_t table_create(size_t table, const void *spec);  // SDK_RET_ALREADY_PRESENT
sdk::sdk_ret_t table_update(size_t table, const void *spec);  // SDK_RET_LOOKUP_FAILURE
sdk::sdk_ret_t table_delete(size_t table, const void *key);   // SDK_RET_LOOKUP_FAILURE
sdk::sdk_ret_t table_read(size_t table, const void *key,
                          void *spec);  // SDK_RET_LOOKUP_FAILURE, spec untouched

// As table_create, but never fails by a fault.
sdk::sdk_ret_t table_fill(size_t table, const void *spec);

size_t table_entry_count(size_t table);

// About how much memory all entries take.
size_t table_bytes();

struct operation_counts_s {
    uint64_t done, failed;
};

// What has happened to a table since the start, or since clear_tables().
struct table_counts_s {
    operation_counts_s creates, updates, deletes, reads;
    size_t entries, most_entries;
};
table_counts_s table_counts(size_t table);

// Copies of all entry records of a table, in no order.
std::vector<std::vector<uint8_t>> table_entries(size_t table);

// Removes all entries and clears all counts.
void clear_tables();

}  // namespace sim
