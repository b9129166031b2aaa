#include "client/table/record_layout.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "base/nearest_names.h"
#include "client/core/fields.h"
#include "client/core/labels.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr std::string_view k_create = "Create";

const pb::Descriptor *find_type(const std::string &name) {
    return pb::DescriptorPool::generated_pool()->FindMessageTypeByName("nyx." + name);
}

record_part_e part_of(const pb::FieldDescriptor *member) {
    if (member->options().HasExtension(types::action_id)) return RECORD_DATA;
    return member->name() == "key" ? RECORD_KEY : RECORD_MASK;
}

record_field_s make_field(record_part_e part, const pb::FieldDescriptor *member,
                          const pb::FieldDescriptor *field) {
    return {.part = part,
            .member = member,
            .field = field,
            .reflection = reflection_of(field->containing_type()),
            .type = field->type(),
            .offset = field->options().GetExtension(types::record_offset),
            .width = field->options().GetExtension(types::record_width),
            .action_id = part == RECORD_DATA ? action_of(member) : 0};
}

// Fields without a width, as client_tag, have no place in the record.
void add_fields(const pb::FieldDescriptor *field, table_layout_s *layout) {
    if (const pb::Descriptor *type = field->message_type()) {
        for (int i = 0; i < type->field_count(); i++) {
            layout->fields.push_back(make_field(part_of(field), field, type->field(i)));
        }
    } else if (field->options().HasExtension(types::record_width)) {
        const auto part = field->name() == "action_id" ? RECORD_ACTION : RECORD_MASK_FLAG;
        layout->fields.push_back(make_field(part, nullptr, field));
    }
}

bool stands_before(const record_field_s &a, const record_field_s &b) {
    const auto action = [](const record_field_s &f) { return f.part == RECORD_DATA ? f.action_id : 0; };
    return action(a) != action(b) ? action(a) < action(b) : a.offset < b.offset;
}

void read_layout(table_layout_s *layout) {
    layout->key_field = layout->spec->FindFieldByName("key");
    layout->record_size = layout->spec->options().GetExtension(types::record_size);
    layout->key_size = layout->key->options().GetExtension(types::record_size);
    for (int i = 0; i < layout->spec->field_count(); i++) {
        const pb::FieldDescriptor *field = layout->spec->field(i);
        add_fields(field, layout);
        if (field->message_type() && part_of(field) == RECORD_DATA) {
            layout->data.push_back(field);
        }
    }
    std::ranges::sort(layout->fields, stands_before);
    std::ranges::sort(layout->data, {}, action_of);
}

}  // namespace

std::string record_field_s::short_name() const {
    if (part == RECORD_ACTION) return "action";
    return (part == RECORD_MASK ? "mask." : "") + field->name();
}

std::string record_field_s::label() const {
    const std::string word = label_word(label_of(field));
    return (part == RECORD_MASK && !word.empty() ? "mask." : "") + word;
}

bool table_layout_s::ternary() const {
    return std::ranges::find(fields, RECORD_MASK, &record_field_s::part) != fields.end();
}

const pb::FieldDescriptor *table_layout_s::data_of(uint32_t action_id) const {
    const auto found = std::ranges::find(data, action_id, action_of);
    return found == data.end() ? nullptr : *found;
}

uint32_t action_of(const pb::FieldDescriptor *data_member) {
    return data_member->options().GetExtension(types::action_id);
}

std::string data_actions_text(const table_layout_s &layout) {
    std::vector<std::string> actions;
    for (const pb::FieldDescriptor *member : layout.data) {
        actions.push_back(fmt::format("{} ({})", action_of(member), member->name()));
    }
    return fmt::format("{}", fmt::join(actions, " or "));
}

std::vector<std::string> table_names() {
    const pb::ServiceDescriptor *service =
        pb::DescriptorPool::generated_pool()->FindServiceByName("nyx.NyxTblSvc");
    std::vector<std::string> names;
    for (int i = 0; i < service->method_count(); i++) {
        const std::string &method = service->method(i)->name();
        if (method.ends_with(k_create)) {
            names.push_back(method.substr(0, method.size() - k_create.size()));
        }
    }
    return names;
}

outcome_s find_table(std::string_view name, table_layout_s *layout) {
    const std::vector<std::string> names = table_names();
    const std::string text(name);
    if (std::ranges::find(names, text) == names.end()) {
        return usage_failure(fmt::format("unknown table \"{}\"{}; see nyxctl explain for all {}", name,
                                         base::nearest_names_text(name, names), names.size()));
    }
    *layout = {};
    layout->name = text;
    layout->spec = find_type(text + "Spec");
    layout->key = find_type(text + "_key_t");
    read_layout(layout);
    return {};
}

}  // namespace nyxctl
