#include "client/view/metric_name.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "nyx/agent.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr unit_s k_units[] = {
    {"°C", "celsius"},
    {"C", "celsius"},
    {"V", "volts"},
    {"mV", "volts", 1e-3},
    {"W", "watts"},
    {"mW", "watts", 1e-3},
    {"A", "amperes"},
    {"mA", "amperes", 1e-3},
    {"Hz", "hertz"},
    {"kHz", "hertz", 1e3},
    {"MHz", "hertz", 1e6},
    {"GHz", "hertz", 1e9},
    {"s", "seconds"},
    {"ms", "seconds", 1e-3},
    {"us", "seconds", 1e-6},
    {"ns", "seconds", 1e-9},
    {"B", "bytes"},
    {"bytes", "bytes"},
    {"kB", "bytes", 1e3},
    {"MB", "bytes", 1e6},
    {"GB", "bytes", 1e9},
    {"KiB", "bytes", 1024},
    {"MiB", "bytes", 1048576},
    {"%", "ratio", 1e-2},
};

// Names of messages end in what they are, names of metrics don't.
std::string_view without_kind(std::string_view part) {
    for (const std::string_view kind : {"stats", "status", "spec", "if"}) {
        if (part == kind) {
            return {};
        }
        if (part.ends_with(kind) && part[part.size() - kind.size() - 1] == '_') {
            return without_kind(part.substr(0, part.size() - kind.size() - 1));
        }
    }
    return part;
}

}  // namespace

std::string metric_name(std::string_view prefix, std::string_view path) {
    std::string name = "nyx_";
    std::string last(prefix);
    while (!path.empty()) {
        const size_t dot = std::min(path.find('.'), path.size());
        const bool is_last = dot == path.size();
        const std::string_view part = is_last ? path : without_kind(path.substr(0, dot));
        if (!part.empty()) {
            name += part == last || part.starts_with(last + "_") ? "" : last + "_";
            last = part;
        }
        path.remove_prefix(is_last ? dot : dot + 1);
    }
    std::ranges::replace_if(
        last, [](unsigned char c) { return c >= 0x80 || !std::isalnum(c); }, '_');
    return name + last;
}

unit_s metric_unit(const pb::FieldDescriptor *field, const label_s *label, std::string *name) {
    std::string unit = label ? label->unit : "";
    if (unit.empty() && field->containing_type() == nyx::AgentMemory::descriptor()) {
        unit = "B";
    }
    for (const std::string_view in_name : {"_ns", "_ms"}) {
        if (unit.empty() && name->ends_with(in_name)) {
            unit = in_name.substr(1);
            name->erase(name->size() - in_name.size());
        }
    }
    const auto *known = std::ranges::find(k_units, unit, &unit_s::unit);
    return known == std::end(k_units) ? unit_s{} : *known;
}

std::string number_texts(const pb::FieldDescriptor *field, const label_s *label) {
    std::string texts;
    for (int i = 0; field->enum_type() && i < field->enum_type()->value_count(); i++) {
        const auto *value = field->enum_type()->value(i);
        const std::string text = label_text(field, value);
        texts +=
            text.empty() ? "" : fmt::format("{} {} {}", texts.empty() ? ":" : ",", value->number(), text);
    }
    for (const auto &[number, text] : label && !field->enum_type() ? label->values : label_s().values) {
        texts += fmt::format("{} {} {}", texts.empty() ? ":" : ",", number, text);
    }
    return texts;
}

}  // namespace nyxctl
