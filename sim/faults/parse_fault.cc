#include "sim/faults/parse_fault.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>

#include "base/nearest_names.h"
#include "sim/faults/faults.h"

namespace sim {

namespace {

constexpr uint64_t k_max_number = std::numeric_limits<uint32_t>::max();

[[noreturn]] void refuse(std::string_view text, const std::string &why) {
    throw std::invalid_argument("fault '" + std::string(text) + "': " + why);
}

template <class T>
T value_or_refuse(const std::optional<T> &value, std::string_view text, const std::string &why) {
    if (!value) {
        refuse(text, why);
    }
    return *value;
}

std::optional<uint64_t> to_number(std::string_view text, int base = 10) {
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::optional<sdk::sdk_ret_t> to_code(std::string_view text) {
#define SDK_RET_BY_NAME(name, value, description) \
    if (text == #name) {                          \
        return sdk::name;                         \
    }
    SDK_RET_CODES(SDK_RET_BY_NAME)
#undef SDK_RET_BY_NAME
    const auto number = to_number(text);
    return number && *number > 0 && *number <= UINT32_MAX
               ? std::optional(static_cast<sdk::sdk_ret_t>(*number))
               : std::nullopt;
}

std::string nearest_code(std::string_view given) {
    std::vector<std::string> names;
#define SDK_RET_NAME(name, value, description) names.push_back(#name);
    SDK_RET_CODES(SDK_RET_NAME)
#undef SDK_RET_NAME
    return base::nearest_names_text(given, names);
}

std::optional<std::vector<uint8_t>> to_bytes(std::string_view hex) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        const auto byte = to_number(hex.substr(i, 2), 16);
        if (!byte) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<uint8_t>(*byte));
    }
    return hex.empty() || hex.size() % 2 ? std::nullopt : std::optional(bytes);
}

struct number_setting_s {
    std::string_view name;
    std::optional<uint64_t> fault_s::*member;
    uint64_t lowest, highest;
};

constexpr uint64_t k_max_delay_ms = 3'600'000;  // nothing wakes an operation that waits

constexpr number_setting_s k_number_settings[] = {
    {"after", &fault_s::after, 1, k_max_number},      {"chance", &fault_s::chance, 1, 100},
    {"delay", &fault_s::delay_ms, 1, k_max_delay_ms}, {"every", &fault_s::every, 1, k_max_number},
    {"full", &fault_s::full, 1, k_max_number},        {"nth", &fault_s::nth, 1, k_max_number},
    {"seed", &fault_s::seed, 0, k_max_number},        {"walk", &fault_s::walk, 0, k_max_number},
};

std::string known_settings() {
    std::string names = "code=, key=";
    for (const auto &setting : k_number_settings) {
        names += ", " + std::string(setting.name) + "=";
    }
    return names;
}

void parse_number(std::string_view text, const number_setting_s &setting, std::string_view value,
                  fault_s *fault) {
    const auto number = to_number(value);
    if (!number || *number < setting.lowest || *number > setting.highest) {
        refuse(text, std::string(setting.name) + "= must be a number from " + std::to_string(setting.lowest) +
                         " to " + std::to_string(setting.highest));
    }
    fault->*setting.member = number;
}

void parse_setting(std::string_view text, std::string_view setting, fault_s *fault) {
    const size_t equals = std::min(setting.find('='), setting.size());
    const auto name = setting.substr(0, equals);
    const auto value = setting.substr(std::min(equals + 1, setting.size()));
    const auto *numeric = std::ranges::find(k_number_settings, name, &number_setting_s::name);
    if (name == "code") {
        fault->code = value_or_refuse(
            to_code(value), text,
            "code= must be a number above 0 or the name of a return code" + nearest_code(value));
    } else if (name == "key") {
        fault->key = value_or_refuse(to_bytes(value), text, "key= must be pairs of hexadecimal digits");
    } else if (numeric != std::end(k_number_settings)) {
        parse_number(text, *numeric, value, fault);
    } else {
        refuse(text, "unknown setting '" + std::string(setting) + "'; known: " + known_settings());
    }
}

// What follows the operation, each setting at most once.
void parse_settings(std::string_view text, std::string_view settings, fault_s *fault) {
    std::vector<std::string_view> names;
    while (!settings.empty()) {
        const auto setting = settings.substr(0, settings.find(','));
        const auto name = setting.substr(0, setting.find('='));
        if (std::ranges::count(names, name)) {
            refuse(text, std::string(name) + "= is given twice");
        }
        names.push_back(name);
        parse_setting(text, setting, fault);
        settings.remove_prefix(std::min(setting.size() + 1, settings.size()));
    }
}

void check_full(const fault_s &fault) {
    if (!fault.operation.starts_with("nyx_tbl_") || !fault.operation.ends_with("_create")) {
        refuse(fault.text, "full= is only for nyx_tbl_<table>_create");
    }
    if (fault.delay_ms || fault.after || !fault.key.empty()) {
        refuse(fault.text, "full= goes only with code=");
    }
}

void check_limits(const fault_s &fault) {
    if (fault.nth.has_value() + fault.every.has_value() + fault.chance.has_value() + fault.walk.has_value() +
            fault.full.has_value() >
        1) {
        refuse(fault.text, "give at most one of nth=, every=, chance=, walk= and full=");
    }
    if (fault.nth && fault.after) {
        refuse(fault.text, "nth= counts from the first call; leave out after=");
    }
    if (fault.seed && !fault.chance) {
        refuse(fault.text, "seed= needs chance=");
    }
    if (fault.full) {
        check_full(fault);
    }
}

std::string parse_operation(std::string_view text, std::string_view name) {
    const std::string operation(name);
    const auto operations = fault_operations();
    if (!std::ranges::binary_search(operations, operation)) {
        refuse(text, "unknown operation '" + operation + "'" + base::nearest_names_text(name, operations));
    }
    return operation;
}

}  // namespace

fault_s parse_fault(std::string_view text) {
    if (text.size() > k_max_fault_size) {
        throw std::invalid_argument("a fault has at most " + std::to_string(k_max_fault_size) +
                                    " bytes; this one has " + std::to_string(text.size()));
    }
    const size_t colon = text.rfind(':');
    if (colon == text.npos) {
        refuse(text, "must be OPERATION:code=CODE or OPERATION:delay=MS");
    }
    fault_s fault;
    fault.text = text;
    fault.operation = parse_operation(text, text.substr(0, colon));
    parse_settings(text, text.substr(colon + 1), &fault);
    check_limits(fault);
    if (fault.full && fault.code == sdk::SDK_RET_OK) {
        fault.code = sdk::SDK_RET_RESOURCE_EXHAUSTION;
    }
    if (fault.code == sdk::SDK_RET_OK && !fault.delay_ms) {
        refuse(text, "needs code= or delay=");
    }
    return fault;
}

}  // namespace sim
