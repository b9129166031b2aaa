#include "sim/api/tables.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>

#include "sim/faults/faults.h"

namespace sim {

namespace {

using record = std::vector<uint8_t>;

enum table_operation_e { TABLE_CREATE, TABLE_UPDATE, TABLE_DELETE, TABLE_READ, TABLE_OPERATIONS };

struct operation_counter_s {
    std::atomic<uint64_t> done = 0, failed = 0;
};

// Gives consecutive keys neighbouring buckets, because entries are mostly created in the order of their keys. With a
// million entries, most of the time that creating one more takes is spent on memory that is far apart.
struct near_hash {
    size_t operator()(const std::string &key) const {
        size_t hash = 0, word = 0, i = 0;
        for (; i + sizeof(word) <= key.size(); i += sizeof(word)) {
            memcpy(&word, &key[i], sizeof(word));
            hash = hash * 0x9e3779b97f4a7c15 + word;
        }
        word = 0;
        memcpy(&word, &key[i], key.size() - i);
        return hash * 0x9e3779b97f4a7c15 + word;
    }
};

struct table_s {
    std::shared_mutex lock;
    std::unordered_map<std::string, record, near_hash> entries;  // by the bytes of the key record
    size_t most_entries = 0;
    operation_counter_s counters[TABLE_OPERATIONS];
};

table_s &at(size_t table) {
    static std::vector<table_s> tables(table_infos().size());
    return tables[table];
}

std::span<const uint8_t> bytes(const void *data, size_t size) {
    return {static_cast<const uint8_t *>(data), size};
}

std::span<const uint8_t> key_of_spec(size_t table, const void *spec) {
    return bytes(static_cast<const uint8_t *>(spec) + 1, table_infos()[table].key_size);
}

std::string to_key(std::span<const uint8_t> key) { return {key.begin(), key.end()}; }

record to_record(size_t table, const void *spec) {
    const auto data = bytes(spec, table_infos()[table].record_size);
    return {data.begin(), data.end()};
}

sdk::sdk_ret_t injected(size_t table, const char *operation, std::span<const uint8_t> key) {
    return faults_armed() ? injected_fault(table_operation(table_infos()[table].name, operation), key)
                          : sdk::SDK_RET_OK;
}

// The caller holds the table's lock, so that no two creates take the last place.
sdk::sdk_ret_t injected_full(size_t table, size_t entries) {
    return faults_armed() ? full_table_fault(table_operation(table_infos()[table].name, "create"), entries)
                          : sdk::SDK_RET_OK;
}

sdk::sdk_ret_t counted(size_t table, table_operation_e operation, sdk::sdk_ret_t ret) {
    auto &counter = at(table).counters[operation];
    (ret ? counter.failed : counter.done).fetch_add(1, std::memory_order_relaxed);
    return ret;
}

operation_counts_s counts_of(const operation_counter_s &counter) { return {counter.done, counter.failed}; }

// The caller holds the table's lock.
sdk::sdk_ret_t insert_entry(size_t table, const void *spec) {
    auto &entries = at(table).entries;
    const bool created = entries.try_emplace(to_key(key_of_spec(table, spec)), to_record(table, spec)).second;
    at(table).most_entries = std::max(at(table).most_entries, entries.size());
    return created ? sdk::SDK_RET_OK : sdk::SDK_RET_ALREADY_PRESENT;
}

sdk::sdk_ret_t create_entry(size_t table, const void *spec) {
    if (const auto ret = injected(table, "create", key_of_spec(table, spec))) {
        return ret;
    }
    std::unique_lock guard(at(table).lock);
    if (const auto ret = injected_full(table, at(table).entries.size())) {
        return ret;
    }
    return insert_entry(table, spec);
}

sdk::sdk_ret_t update_entry(size_t table, const void *spec) {
    const auto key = key_of_spec(table, spec);
    if (const auto ret = injected(table, "update", key)) {
        return ret;
    }
    std::unique_lock guard(at(table).lock);
    const auto entry = at(table).entries.find(to_key(key));
    if (entry == at(table).entries.end()) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    entry->second = to_record(table, spec);
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t delete_entry(size_t table, const void *key_record) {
    const auto key = bytes(key_record, table_infos()[table].key_size);
    if (const auto ret = injected(table, "delete", key)) {
        return ret;
    }
    std::unique_lock guard(at(table).lock);
    return at(table).entries.erase(to_key(key)) ? sdk::SDK_RET_OK : sdk::SDK_RET_LOOKUP_FAILURE;
}

sdk::sdk_ret_t read_entry(size_t table, const void *key_record, void *spec) {
    const auto key = bytes(key_record, table_infos()[table].key_size);
    if (const auto ret = injected(table, "read", key)) {
        return ret;
    }
    std::shared_lock guard(at(table).lock);
    const auto entry = at(table).entries.find(to_key(key));
    if (entry == at(table).entries.end()) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    memcpy(spec, entry->second.data(), entry->second.size());
    return sdk::SDK_RET_OK;
}

}  // namespace

sdk::sdk_ret_t table_create(size_t table, const void *spec) {
    return counted(table, TABLE_CREATE, create_entry(table, spec));
}

sdk::sdk_ret_t table_fill(size_t table, const void *spec) {
    std::unique_lock guard(at(table).lock);
    return counted(table, TABLE_CREATE, insert_entry(table, spec));
}

sdk::sdk_ret_t table_update(size_t table, const void *spec) {
    return counted(table, TABLE_UPDATE, update_entry(table, spec));
}

sdk::sdk_ret_t table_delete(size_t table, const void *key) {
    return counted(table, TABLE_DELETE, delete_entry(table, key));
}

sdk::sdk_ret_t table_read(size_t table, const void *key, void *spec) {
    return counted(table, TABLE_READ, read_entry(table, key, spec));
}

table_counts_s table_counts(size_t table) {
    const auto &counters = at(table).counters;
    std::shared_lock guard(at(table).lock);
    return {.creates = counts_of(counters[TABLE_CREATE]),
            .updates = counts_of(counters[TABLE_UPDATE]),
            .deletes = counts_of(counters[TABLE_DELETE]),
            .reads = counts_of(counters[TABLE_READ]),
            .entries = at(table).entries.size(),
            .most_entries = at(table).most_entries};
}

size_t table_entry_count(size_t table) {
    std::shared_lock guard(at(table).lock);
    return at(table).entries.size();
}

size_t table_bytes() {
    // The node of the hash table with its text and its vector, and each of their blocks on the heap.
    constexpr size_t k_node = 112, k_longest_inline_key = 15, k_heap = 24;
    size_t bytes = 0;
    for (size_t table = 0; table < table_infos().size(); table++) {
        const auto &info = table_infos()[table];
        const size_t key = info.key_size > k_longest_inline_key ? info.key_size + k_heap : 0;
        bytes += table_entry_count(table) * (k_node + key + info.record_size + k_heap);
    }
    return bytes;
}

std::vector<std::vector<uint8_t>> table_entries(size_t table) {
    std::shared_lock guard(at(table).lock);
    std::vector<record> records;
    for (const auto &[key, entry] : at(table).entries) {
        records.push_back(entry);
    }
    return records;
}

void clear_tables() {
    for (size_t table = 0; table < table_infos().size(); table++) {
        std::unique_lock guard(at(table).lock);
        at(table).entries.clear();
        at(table).most_entries = 0;
        for (auto &counter : at(table).counters) {
            counter.done = counter.failed = 0;
        }
    }
}

}  // namespace sim
