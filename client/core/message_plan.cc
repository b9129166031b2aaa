#include "client/core/message_plan.h"

#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <memory>

#include "client/core/bytes_text.h"
#include "client/core/fields.h"
#include "client/core/record_width.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

plain_e plain_of(const pb::FieldDescriptor *field) {
    if (field->is_repeated()) return PLAIN_NONE;
    switch (field->type()) {
        case pb::FieldDescriptor::TYPE_UINT32:
            return PLAIN_UINT32;
        case pb::FieldDescriptor::TYPE_UINT64:
            return PLAIN_UINT64;
        case pb::FieldDescriptor::TYPE_BYTES:
            return PLAIN_BYTES;
        default:
            return PLAIN_NONE;
    }
}

std::unique_ptr<message_plan_s> make_plan(const pb::Descriptor *type) {
    auto plan = std::make_unique<message_plan_s>();
    for (int i = 0; i < type->field_count(); i++) {
        plan->fields.push_back(plan_of_field(type->field(i)));
        plan->names[type->field(i)->camelcase_name()] = static_cast<size_t>(i);
    }
    for (int i = 0; i < type->field_count(); i++) {  // what the contract calls a field comes first
        plan->names[type->field(i)->name()] = static_cast<size_t>(i);
    }
    return plan;
}

}  // namespace

void field_plan_s::set_number(pb::Message *message, uint64_t number) const {
    if (plain == PLAIN_UINT64) {
        reflection->SetUInt64(message, field, number);
    } else {
        reflection->SetUInt32(message, field, static_cast<uint32_t>(number));
    }
}

uint64_t field_plan_s::number(const pb::Message &message) const {
    return plain == PLAIN_UINT64 ? reflection->GetUInt64(message, field)
                                 : reflection->GetUInt32(message, field);
}

size_t message_plan_s::find(std::string_view name, size_t guess) const {
    if (guess < fields.size() && fields[guess].field->name() == name) {
        return guess;
    }
    const auto found = names.find(name);
    return found == names.end() ? fields.size() : found->second;
}

const message_plan_s &plan_of(const pb::Descriptor *type) {
    thread_local std::unordered_map<const pb::Descriptor *, std::unique_ptr<message_plan_s>> plans;
    auto &plan = plans[type];
    if (!plan) {
        plan = make_plan(type);
    }
    return *plan;
}

field_plan_s plan_of_field(const pb::FieldDescriptor *field) {
    const plain_e plain = plain_of(field);
    const uint64_t most =
        plain == PLAIN_UINT32 ? std::numeric_limits<uint32_t>::max() : std::numeric_limits<uint64_t>::max();
    return {.field = field,
            .reflection = reflection_of(field->containing_type()),
            .plain = plain,
            .json_name = "\"" + field->name() + "\":",
            .largest = std::min(most, largest_number(field)),
            .width = field->options().GetExtension(types::record_width),
            .bytes_form = field->options().GetExtension(types::bytes_text),
            .number_form = field->options().GetExtension(types::number_text)};
}

bool set_plainly(const field_plan_s &plan, std::string_view text, pb::Message *message) {
    if (plan.is_plain_number()) {
        uint64_t number = 0;
        const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        const bool is_plain = error == std::errc() && stop == text.data() + text.size();
        if (is_plain && number <= plan.largest) {
            plan.set_number(message, number);
        }
        return is_plain && number <= plan.largest;
    }
    std::string bytes;
    std::string unused;
    if (plan.plain != PLAIN_BYTES || !bytes_from_text(text, plan.bytes_form, &bytes, &unused) ||
        (plan.width != 0 && bytes.size() > plan.width)) {
        return false;
    }
    plan.reflection->SetString(message, plan.field, std::move(bytes));
    return true;
}

}  // namespace nyxctl
