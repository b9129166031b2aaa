#include "sim/card/host_interfaces.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/file_source.h"
#include "base/json_list.h"
#include "sim/card/if_records.h"

namespace sim {

namespace {

struct recorded_s {
    std::string name;
    mac_addr_s mac;
};

bool is_name(const std::string &text) {
    return !text.empty() && text.size() < sizeof(host_if_spec_s::name) && text.find('\0') == text.npos;
}

std::optional<mac_addr_s> parse_mac(const std::string &text) {
    mac_addr_s mac;
    bool good = text.size() == 17;
    for (size_t i = 0; good && i < 6; i++) {
        const char *digits = text.data() + 3 * i;
        const auto [end, error] = std::from_chars(digits, digits + 2, mac.bytes[i], 16);
        good = error == std::errc() && end == digits + 2 && (i == 5 || *end == ':');
    }
    return good ? std::optional(mac) : std::nullopt;
}

std::vector<recorded_s> recorded_in(const std::string &path) {
    constexpr std::array<std::string_view, 2> k_members = {"name", "mac"};
    std::vector<recorded_s> recorded;
    const auto take_row = [&](base::json_row<2> &row) {
        const auto name = std::move(row[0]).value_or("default");
        const auto mac = parse_mac(std::move(row[1]).value_or("00:00:00:00:00:00"));
        if (is_name(name) && mac) {
            recorded.push_back({name, *mac});
        }
    };
    const auto found = base::read_json_list(base::file_source(path), "host-interface", k_members, take_row);
    if (found != base::JSON_LIST_PROPER) {
        throw std::runtime_error("host-interface is missing or not a list");
    }
    return recorded;
}

// Byte 0x0b: the keys of the card's own interfaces start with another one.
nyx_obj_key_s key_of(const std::string &name) {
    nyx_obj_key_s key = {.id = {0x0b}, .terminator = 0};
    memcpy(key.id + 1, name.data(), name.size());
    return key;
}

using info_by_name = std::unordered_map<std::string, nyx_if_info_s *>;

info_by_name host_interfaces_of(if_records_s *records) {
    info_by_name all;
    for (auto &[key, info] : records->interfaces) {
        if (info.spec.type == NYX_IF_TYPE_HOST) {
            const char *const name = info.spec.host.name;
            all.try_emplace(std::string(name, strnlen(name, sizeof(info.spec.host.name))), &info);
        }
    }
    return all;
}

nyx_if_info_s *add(if_records_s *records, const std::string &name) {
    auto &info = records->interfaces[key_of(name)];
    info.spec.key = key_of(name);
    info.spec.type = NYX_IF_TYPE_HOST;
    info.spec.admin_state = info.status.oper_state = NYX_STATE_UP;
    info.status.if_index = records->next_if_index++;
    memcpy(info.spec.host.name, name.data(), name.size());
    memcpy(info.status.host.name, name.data(), name.size());
    return &info;
}

void take(const std::vector<recorded_s> &recorded) {
    (void)change_if_records([&](if_records_s &records) {
        info_by_name present = host_interfaces_of(&records);
        for (const auto &[name, mac] : recorded) {
            nyx_if_info_s *&info = present[name];
            info = info ? info : add(&records, name);
            info->spec.host.mac = info->status.host.mac = mac;
        }
        return sdk::SDK_RET_OK;
    });
}

bool is_missing_file(const std::exception &error) {
    const auto *const system = dynamic_cast<const std::system_error *>(&error);
    return system && system->code() == std::errc::no_such_file_or_directory;
}

}  // namespace

bool load_host_interfaces(const std::string &path, std::string *error) {
    try {
        take(recorded_in(path));
    } catch (const std::exception &exception) {
        if (is_missing_file(exception)) {
            return true;
        }
        const std::string text = exception.what();
        *error = text.starts_with(path) ? text : path + ": " + text;
        return false;
    }
    return true;
}

}  // namespace sim
