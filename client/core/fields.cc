#include "client/core/fields.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <google/protobuf/descriptor.h>

#include "base/nearest_names.h"
#include "client/core/labels.h"

namespace pb = google::protobuf;

namespace nyxctl {

const pb::Reflection *reflection_of(const pb::Descriptor *type) {
    return pb::MessageFactory::generated_factory()->GetPrototype(type)->GetReflection();
}

std::unique_ptr<pb::Message> new_message(const pb::Descriptor *type) {
    return std::unique_ptr<pb::Message>(pb::MessageFactory::generated_factory()->GetPrototype(type)->New());
}

int element_count(const pb::Message &message, const pb::FieldDescriptor *field) {
    return field->is_repeated() ? message.GetReflection()->FieldSize(message, field) : 1;
}

const pb::Message &message_at(const pb::Message &message, const pb::FieldDescriptor *field, int index) {
    return field->is_repeated() ? message.GetReflection()->GetRepeatedMessage(message, field, index)
                                : message.GetReflection()->GetMessage(message, field);
}

pb::Message *mutable_message_at(pb::Message *message, const pb::FieldDescriptor *field, int index) {
    const pb::Reflection *reflection = message->GetReflection();
    if (!field->is_repeated()) {
        return reflection->MutableMessage(message, field);
    }
    return index == reflection->FieldSize(*message, field)
               ? reflection->AddMessage(message, field)
               : reflection->MutableRepeatedMessage(message, field, index);
}

const pb::FieldDescriptor *find_field(const pb::Descriptor *type, const std::string &name) {
    const auto *field = type->FindFieldByName(name);
    field = field ? field : type->FindFieldByCamelcaseName(name);
    return field ? field : labelled_field(type, name);
}

std::vector<std::string> field_names(const pb::Descriptor *type) {
    std::vector<std::string> names;
    for (int i = 0; i < type->field_count(); i++) {
        names.push_back(type->field(i)->name());
    }
    return names;
}

std::string unknown_field_text(std::span<const pb::Descriptor *const> types, const std::string &name) {
    std::vector<std::string> fields;
    std::vector<std::string> messages;
    for (const pb::Descriptor *type : types) {
        const auto names = field_names(type);
        fields.insert(fields.end(), names.begin(), names.end());
        const auto labels = field_labels(type);
        fields.insert(fields.end(), labels.begin(), labels.end());
        messages.push_back(type->full_name());
    }
    return fmt::format("no such field in {}{}; see nyxctl describe {}", fmt::join(messages, " or "),
                       base::nearest_names_text(name, fields), messages.back());
}

std::string oneof_error(const pb::Message &message, const pb::FieldDescriptor *field) {
    const pb::OneofDescriptor *oneof = field->real_containing_oneof();
    const auto *member = oneof ? message.GetReflection()->GetOneofFieldDescriptor(message, oneof) : nullptr;
    if (!member || member == field) {
        return {};
    }
    std::vector<std::string> names;
    for (int i = 0; i < oneof->field_count(); i++) {
        names.push_back(oneof->field(i)->name());
    }
    return fmt::format("{} is set already; give fields of only one of {}", member->name(),
                       fmt::join(names, ", "));
}

}  // namespace nyxctl
