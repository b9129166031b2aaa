// The P4 tables: one store of bytes for all of them.

#include <cstring>
#include <map>
#include <string>

#include "agent_api/nyx_tbl.h"
#include "platform.h"

namespace {

using platform::guarded;
using sdk::sdk_ret_t;
using enum sdk::sdk_ret_t;

std::mutex g_mutex;
std::map<std::string, std::string> g_entries;  // records by table name and key; under the mutex

template <typename record_t>
std::string bytes(const record_t &record) {
    return {reinterpret_cast<const char *>(&record), sizeof(record)};
}

template <typename spec_t>
sdk_ret_t create(const char *table, const spec_t &spec) {
    return guarded(g_mutex, [&] {
        const bool is_new = g_entries.try_emplace(table + bytes(spec.key), bytes(spec)).second;
        return is_new ? SDK_RET_OK : SDK_RET_ALREADY_PRESENT;
    });
}

template <typename spec_t>
sdk_ret_t update(const char *table, const spec_t &spec) {
    return guarded(g_mutex, [&] {
        const auto found = g_entries.find(table + bytes(spec.key));
        if (found == g_entries.end()) return SDK_RET_LOOKUP_FAILURE;
        found->second = bytes(spec);
        return SDK_RET_OK;
    });
}

template <typename key_t>
sdk_ret_t remove(const char *table, const key_t &key) {
    return guarded(g_mutex, [&] {
        return g_entries.erase(table + bytes(key)) == 1 ? SDK_RET_OK : SDK_RET_LOOKUP_FAILURE;
    });
}

template <typename key_t, typename spec_t>
sdk_ret_t read(const char *table, const key_t &key, spec_t *spec) {
    return guarded(g_mutex, [&] {
        const auto found = g_entries.find(table + bytes(key));
        if (found == g_entries.end()) return SDK_RET_LOOKUP_FAILURE;
        memcpy(spec, found->second.data(), sizeof(*spec));
        return SDK_RET_OK;
    });
}

}  // namespace

#define TABLE(name)                                                                                         \
    sdk_ret_t nyx_tbl_##name##_create(const nyx_tbl_##name##_spec_s *spec) { return create(#name, *spec); } \
    sdk_ret_t nyx_tbl_##name##_update(const nyx_tbl_##name##_spec_s *spec) { return update(#name, *spec); } \
    sdk_ret_t nyx_tbl_##name##_delete(const nyx_tbl_##name##_key_s *key) { return remove(#name, *key); }    \
    sdk_ret_t nyx_tbl_##name##_read(const nyx_tbl_##name##_key_s *key, nyx_tbl_##name##_spec_s *spec) {     \
        return read(#name, *key, spec);                                                                     \
    }
#include "tables.inc"
