#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <optional>
#include <span>
#include <stdexcept>

#include "base/nearest_names.h"
#include "base/text.h"
#include "base/toml.h"
#include "sim/card/table_info.h"
#include "sim/scenario/scenario.h"

namespace sim {

namespace {

constexpr uint64_t k_max_entries = 1'000'000;  // of all tables together: about 200 MB
constexpr uint64_t k_max_packets = 1'000'000'000, k_max_packet = 9216, k_million = 1'000'000;
constexpr uint64_t k_day_ms = 86'400'000, k_shortest_ms = 1000,
                   k_required = std::numeric_limits<uint64_t>::max();

[[noreturn]] void refuse(const toml::node &at, const std::string &why) {
    throw std::invalid_argument("line " + std::to_string(at.source().begin.line) + ": " + why);
}

// A key whose value is a number. Times are written in seconds and kept in milliseconds.
template <class Stanza>
struct number_key_s {
    std::string_view name;
    uint64_t Stanza::*member;
    uint64_t lowest, highest;
    uint64_t fallback = 0;
    bool is_time = false;
};

constexpr number_key_s<traffic_s> k_traffic_keys[] = {
    {"packets", &traffic_s::packets, 0, k_max_packets, k_required},
    {"bytes", &traffic_s::bytes, 64, k_max_packet, 512},
    {"replies", &traffic_s::replies, 0, k_max_packets},
    {"reply_bytes", &traffic_s::reply_bytes, 64, k_max_packet, 64},
    {"burst", &traffic_s::burst, 0, 90},
    {"drops", &traffic_s::drops, 0, k_million},
    {"errors", &traffic_s::errors, 0, k_million},
    {"drop_reason", &traffic_s::drop_reason, 0, 12},
    {"session", &traffic_s::session, 1, std::numeric_limits<uint32_t>::max()},
};

constexpr number_key_s<sensor_s> k_sensor_keys[] = {
    {"from", &sensor_s::from, 0, k_million, k_required},
    {"to", &sensor_s::to, 0, k_million, k_required},
    {"period", &sensor_s::period_ms, k_shortest_ms, k_day_ms, k_required, true},
    {"limit", &sensor_s::limit, 0, k_million, k_million},
};

constexpr number_key_s<event_s> k_event_keys[] = {
    {"port", &event_s::port, 1, k_ports, 1},
    {"at", &event_s::at_ms, 0, k_day_ms, 0, true},
    {"lasts", &event_s::lasts_ms, k_shortest_ms, k_day_ms, k_shortest_ms, true},
    {"every", &event_s::every_ms, 2 * k_shortest_ms, k_day_ms, 0, true},
    {"jitter", &event_s::jitter_ms, 0, k_day_ms, 0, true},
};

constexpr number_key_s<fill_s> k_fill_keys[] = {
    {"at", &fill_s::at_ms, 0, k_day_ms, 0, true},
    {"per_second", &fill_s::per_second, 1, 100'000, k_required},
    {"entries", &fill_s::entries, 1, k_max_entries, k_required},
};

std::optional<double> number_in(const toml::node &value) {
    return value.is_number() ? value.value<double>() : std::nullopt;
}

template <class Stanza>
uint64_t number_of(const toml::table &stanza, const number_key_s<Stanza> &key) {
    const double scale = key.is_time ? 1000 : 1;
    const toml::node *value = stanza.get(key.name);
    if (!value && key.fallback == k_required) {
        refuse(stanza, std::string(key.name) + " is missing");
    }
    if (!value) {
        return key.fallback;
    }
    const double number = number_in(*value).value_or(-1) * scale;
    const bool is_whole = key.is_time || value->is_integer();
    if (!is_whole || !(number >= static_cast<double>(key.lowest)) ||
        number > static_cast<double>(key.highest)) {
        refuse(*value, std::string(key.name) + " must be a " +
                           (key.is_time ? "number of seconds" : "whole number") + " from " +
                           std::to_string(key.lowest / static_cast<uint64_t>(scale)) + " to " +
                           std::to_string(key.highest / static_cast<uint64_t>(scale)));
    }
    return static_cast<uint64_t>(std::llround(number));
}

std::string text_of(const toml::table &stanza, std::string_view key) {
    const toml::node *value = stanza.get(key);
    if (!value || !value->is_string()) {
        refuse(value ? *value : stanza, std::string(key) + " must be a text");
    }
    return *value->value<std::string>();
}

size_t one_of(const toml::table &stanza, std::string_view key, std::span<const std::string> names) {
    const std::string text = text_of(stanza, key);
    const auto found = std::ranges::find(names, text);
    if (found == names.end()) {
        refuse(*stanza.get(key), std::string(key) + " \"" + text.substr(0, 64) + "\" is unknown" +
                                     base::nearest_or_known_text(text, names));
    }
    return static_cast<size_t>(found - names.begin());
}

void refuse_unknown_keys(const toml::table &stanza, std::span<const std::string> known) {
    for (const auto &[key, value] : stanza) {
        if (std::ranges::find(known, key.str()) == known.end()) {
            refuse(value, "unknown key \"" + std::string(key.str().substr(0, 64)) + "\"" +
                              base::nearest_or_known_text(key.str(), known));
        }
    }
}

template <class Stanza>
Stanza numbers_of(const toml::table &stanza, std::span<const number_key_s<Stanza>> keys,
                  std::vector<std::string> known) {
    Stanza read{};
    for (const auto &key : keys) {
        read.*key.member = number_of(stanza, key);
        known.emplace_back(key.name);
    }
    refuse_unknown_keys(stanza, known);
    return read;
}

const std::vector<std::string> k_endpoints = {"port1", "port2", "port3", "lif1",
                                              "lif2",  "lif3",  "lif4",  "lif5"};

void read(const toml::table &stanza, traffic_s *traffic) {
    *traffic = numbers_of<traffic_s>(stanza, k_traffic_keys, {"from", "to"});
    traffic->from = one_of(stanza, "from", k_endpoints);
    traffic->to = one_of(stanza, "to", k_endpoints);
}

void read(const toml::table &stanza, sensor_s *sensor) {
    static const std::vector<std::string> names = {
        "temperature.core", "temperature.board", "temperature.inlet", "voltage.card", "voltage.core",
        "voltage.arm",      "power.total",       "power.core",        "power.arm"};
    *sensor = numbers_of<sensor_s>(stanza, k_sensor_keys, {"name"});
    const size_t name = one_of(stanza, "name", names);
    sensor->group = name / 3;
    sensor->index = name % 3;
}

void check(const toml::table &stanza, const event_s &event) {
    const bool is_link = event.what == EVENT_LINK_DOWN;
    const uint64_t last_port = event.what == EVENT_TRANSCEIVER_OUT ? 2 : 1;
    if (event.port > last_port && !is_link) {
        refuse(stanza, "this event has port 1" + std::string(last_port == 2 ? " or 2" : " only"));
    }
    if (event.every_ms && event.lasts_ms + event.jitter_ms >= event.every_ms) {
        refuse(stanza, "every must be longer than lasts and jitter together");
    }
}

void read(const toml::table &stanza, event_s *event) {
    static const std::vector<std::string> names = {"link_down", "transceiver_out", "neighbor_gone", "fault",
                                                   "restart"};
    *event = numbers_of<event_s>(stanza, k_event_keys, {"what", "fault"});
    event->what = static_cast<event_e>(one_of(stanza, "what", names));
    if (event->what == EVENT_FAULT) {
        try {
            event->fault = parse_fault(text_of(stanza, "fault"));
        } catch (const std::invalid_argument &error) {
            refuse(stanza, error.what());
        }
    }
    check(stanza, *event);
}

void read(const toml::table &stanza, fill_s *fill) {
    std::vector<std::string> tables;
    for (const auto &table : table_infos()) {
        tables.emplace_back(table.name);
    }
    *fill = numbers_of<fill_s>(stanza, k_fill_keys, {"table"});
    fill->table = one_of(stanza, "table", tables);
    const size_t key_size = table_infos()[fill->table].key_size;
    if (key_size < sizeof(uint32_t) && fill->entries >= 1u << 8 * key_size) {
        refuse(stanza, "the keys of this table are too short for so many entries");
    }
}

void check(const std::vector<fill_s> &fills) {
    const uint64_t entries = std::accumulate(fills.begin(), fills.end(), uint64_t{0},
                                             [](uint64_t sum, auto &fill) { return sum + fill.entries; });
    if (entries > k_max_entries) {
        throw std::invalid_argument("tables may fill with up to " + std::to_string(k_max_entries) +
                                    " entries together");
    }
}

template <class Stanza>
std::vector<Stanza> stanzas(const toml::table &root, std::string_view name) {
    std::vector<Stanza> all;
    const toml::node *found = root.get(name);
    const toml::array *array = found ? found->as_array() : nullptr;
    if (found && (!array || !array->is_homogeneous<toml::table>() || array->size() > k_max_stanzas)) {
        refuse(*found, "write up to " + std::to_string(k_max_stanzas) + " [[" + std::string(name) + "]]");
    }
    for (size_t i = 0; array && i < array->size(); i++) {
        read(*array->get_as<toml::table>(i), &all.emplace_back());
    }
    return all;
}

}  // namespace

scenario_s parse_scenario(std::string_view text) {
    if (text.size() > k_max_scenario_bytes) {
        throw std::invalid_argument("a scenario has up to " + std::to_string(k_max_scenario_bytes) +
                                    " bytes");
    }
    try {
        const toml::table root = toml::parse(text);
        refuse_unknown_keys(root, std::vector<std::string>{"title", "traffic", "sensor", "event", "fill"});
        const auto fills = stanzas<fill_s>(root, "fill");
        check(fills);
        return {.title = root.contains("title")
                             ? std::string(base::without_cut_character(text_of(root, "title").substr(0, 200)))
                             : "",
                .traffic = stanzas<traffic_s>(root, "traffic"),
                .sensors = stanzas<sensor_s>(root, "sensor"),
                .events = stanzas<event_s>(root, "event"),
                .fills = fills};
    } catch (const toml::parse_error &error) {
        throw std::invalid_argument("line " + std::to_string(error.source().begin.line) + ": " +
                                    std::string(error.description()));
    }
}

}  // namespace sim
