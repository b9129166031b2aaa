// Boost.PropertyTree is the format's reference, but not used: its reader recurses once per level of nesting, which
// overflows the stack of a gRPC thread, and reading and writing trees takes 1.5 seconds for a file of 10 MB, release
// build.

#include "svc/host_if_mac_list.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "base/json_list.h"
#include "svc/common/converters.h"

namespace svc {

namespace {

void append_string(std::string *json, std::string_view text) {
    constexpr std::string_view k_plain_names = "\"\\/bfnrt", k_escaped = "\"\\/\b\f\n\r\t";
    constexpr const char *k_digits = "0123456789ABCDEF";
    *json += '"';
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if (const size_t index = k_escaped.find(c); index != k_escaped.npos) {
            (*json += '\\') += k_plain_names[index];
        } else if (byte < 0x20) {
            ((*json += "\\u00") += k_digits[byte / 16]) += k_digits[byte % 16];
        } else {
            *json += c;
        }
    }
    *json += '"';
}

// What a request makes of one name.
struct fate_s {
    bool removed = false;  // the records that are there when the request begins
    bool found = false;
    std::string mac;      // in the end; empty: no record
    size_t appended = 0;  // the change that appends a record, if none is left to change
};

using fates = std::unordered_map<std::string_view, fate_s>;

fates fates_of(std::span<const host_if_mac_change_s> changes) {
    fates all;
    for (size_t i = 0; i < changes.size(); i++) {
        fate_s &fate = all[changes[i].name];
        if (!is_set(changes[i].mac)) {
            fate.removed = true;
            fate.mac.clear();
            continue;
        }
        if (fate.mac.empty()) {
            fate.appended = i;
        }
        fate.mac = macaddr2str(changes[i].mac.bytes, false);
    }
    return all;
}

}  // namespace

host_if_mac_list host_if_mac_list_from_json(base::text_source source) {
    host_if_mac_list list;
    const auto append = [&](base::json_row<2> &row) {
        list.push_back(
            {std::move(row[0]).value_or("default"), std::move(row[1]).value_or("00:00:00:00:00:00")});
    };
    constexpr std::array<std::string_view, 2> k_members = {"name", "mac"};
    if (base::read_json_list(std::move(source), "host-interface", k_members, append) ==
        base::JSON_LIST_MISSING) {
        throw std::runtime_error("no member \"host-interface\"");
    }
    return list;
}

std::string host_if_mac_list_to_json(const host_if_mac_list &list) {
    std::string json = "{\n    \"host-interface\": ";
    const char *separator = "[\n";
    for (const auto &[name, mac] : list) {
        (json += separator) += "        {\n            \"name\": ";
        append_string(&json, name);
        json += ",\n            \"mac\": ";
        append_string(&json, mac);
        json += "\n        }";
        separator = ",\n";
    }
    json += list.empty() ? "\"\"" : "\n    ]";
    return json += "\n}\n";
}

void change_host_if_mac_list(host_if_mac_list *list, std::span<const host_if_mac_change_s> changes) {
    fates all = fates_of(changes);
    host_if_mac_list kept;
    kept.reserve(list->size() + changes.size());
    for (auto &record : *list) {
        const auto found = all.find(record.name);
        if (found != all.end()) {
            found->second.found = true;
            record.mac = found->second.mac;
        }
        if (found == all.end() || !found->second.removed) {
            kept.push_back(std::move(record));
        }
    }
    for (size_t i = 0; i < changes.size(); i++) {
        const fate_s &fate = all[changes[i].name];
        if (fate.appended == i && !fate.mac.empty() && (fate.removed || !fate.found)) {
            kept.push_back({changes[i].name, fate.mac});
        }
    }
    *list = std::move(kept);
}

}  // namespace svc
