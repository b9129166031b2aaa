#include "client/view/vitals.h"

#include <fmt/format.h>

#include <array>
#include <optional>

#include "client/core/field_value.h"
#include "client/core/fields.h"
#include "client/view/rates.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

// What tells the elements of a list apart, in the order of preference: in the element itself, its spec or its port.
constexpr std::array k_names = {"port_number", "table_name",   "name",  "type",
                                "reasons",     "queue_number", "queue", "id"};

std::optional<std::string> own_name(const pb::Message &element) {
    for (const char *name : k_names) {
        const auto *field = element.GetDescriptor()->FindFieldByName(name);
        if (field && !field->message_type() && !field->is_repeated()) {
            return cell_text(field_value(element, field));
        }
    }
    return {};
}

std::string name_of(const pb::Message &element, int index) {
    std::optional<std::string> name = own_name(element);
    for (const char *part : {"spec", "port"}) {
        const auto *field = element.GetDescriptor()->FindFieldByName(part);
        if (!name && field && field->message_type() && !field->is_repeated()) {
            name = own_name(element.GetReflection()->GetMessage(element, field));
        }
    }
    return name.value_or(std::to_string(index));
}

// Of a field that is not a list.
std::optional<uint64_t> number_of(const pb::Message &message, const pb::FieldDescriptor *field) {
    const pb::Reflection &get = *message.GetReflection();
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return get.GetUInt32(message, field);
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return get.GetUInt64(message, field);
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return static_cast<uint64_t>(get.GetEnumValue(message, field));
        default:
            return {};
    }
}

bool has_limits(const label_s *label) {
    return label &&
           (label->warn.above || label->warn.below || label->critical.above || label->critical.below);
}

bool is_named(const label_s *label) { return label && !label->name.empty(); }

struct walk_s {
    std::vector<vital_s> vitals = {};

    // `element` is the label of an element of a list of numbers with values.
    void add_number(const pb::Message &message, const pb::FieldDescriptor *field, const std::string &path,
                    const label_s *element) {
        const auto number = number_of(message, field);
        const label_s *label = has_limits(element) ? element : label_of(field);
        const bool is_trouble = field->options().GetExtension(types::trouble);
        if (!number || (!is_trouble && !has_limits(label))) {
            return;
        }
        const bool counts =
            label && label->counter ? *label->counter : field->options().GetExtension(types::counter);
        const bool wide = field->cpp_type() == pb::FieldDescriptor::CPPTYPE_UINT64;
        std::string text = label ? label_text(*label, *number) : "";
        if (text.empty()) {
            text = cell_text(field_value(message, field));
        }
        const label_s *named = is_named(element) ? element : label;
        vitals.push_back({.path = path + (is_named(named) ? named->name : field->name()),
                          .label = has_limits(label) ? label : nullptr,
                          .text = std::move(text),
                          .number = *number,
                          .bits = counts ? (wide ? 64U : 32U) : 0U});
    }

    void add_elements(const pb::Message &message, const pb::FieldDescriptor *list, const std::string &path) {
        for (int i = 0; i < element_count(message, list); i++) {
            const pb::Message &element = message_at(message, list, i);
            const std::string name = name_of(element, i);
            const auto *first =
                element.GetDescriptor()->field_count() == 2 ? element.GetDescriptor()->field(0) : nullptr;
            const auto number = first ? number_of(element, first) : std::nullopt;
            const label_s *label = number ? label_of(list, *number) : nullptr;
            const std::string prefix = list->name() == "response" ? "" : list->name() + " ";
            add(element, is_named(label) ? path : path + prefix + name + " ", "", label);
        }
    }

    // `path` names the list elements around the message, `name` its own field.
    void add(const pb::Message &message, const std::string &path, const std::string &name,
             const label_s *element = nullptr) {
        for (int i = 0; i < message.GetDescriptor()->field_count(); i++) {
            const auto *field = message.GetDescriptor()->field(i);
            if (field->is_repeated()) {
                if (field->message_type()) add_elements(message, field, path);
            } else if (!field->message_type()) {
                add_number(message, field, path + name, i > 0 ? element : nullptr);
            } else if (message.GetReflection()->HasField(message, field)) {
                add(message.GetReflection()->GetMessage(message, field), path, field->name() + " ");
            }
        }
    }
};

std::string bound_text(const char *name, const limit_s &limit, double shown) {
    return limit.above && shown > *limit.above ? fmt::format("{} above {}", name, *limit.above)
                                               : fmt::format("{} below {}", name, limit.below.value_or(0));
}

// `shown` is compared, `text` is what the user reads of it.
verdict_s judge_limits(const label_s &label, double shown, const std::string &text) {
    if (label.critical.passed(shown)) {
        return {health_e::failed, fmt::format("{}, {}", text, bound_text("critical", label.critical, shown))};
    }
    return label.warn.passed(shown)
               ? verdict_s{health_e::degraded,
                           fmt::format("{}, {}", text, bound_text("warning", label.warn, shown))}
               : verdict_s{health_e::ok, text};
}

}  // namespace

std::vector<vital_s> vitals_of(const pb::Message &response) {
    walk_s walk;
    walk.add(response, "", "");
    return std::move(walk.vitals);
}

verdict_s judge(const vital_s &vital) {
    return vital.label
               ? judge_limits(*vital.label, vital.label->shown(static_cast<double>(vital.number)), vital.text)
               : verdict_s{health_e::ok, vital.text};
}

verdict_s judge(const vital_s &before, const vital_s &now, double seconds) {
    const auto growth = counter_growth(before.number, now.number, now.bits);
    if (!growth || *growth == 0) {
        return {};
    }
    const std::string text = fmt::format("+{} in {:.3g} s", *growth, seconds);
    return now.label ? judge_limits(*now.label, static_cast<double>(*growth) / seconds, text)
                     : verdict_s{health_e::degraded, text};
}

}  // namespace nyxctl
