#include "client/view/one_object.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <array>

#include "client/core/field_value.h"
#include "client/core/fields.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

// First fields of elements that count by kind, such as MacStats.type.
constexpr std::array<std::string_view, 3> k_index_names = {"type", "reasons", "queue"};

bool is_value(const pb::FieldDescriptor *field) {
    return !field->message_type() || is_one_value(field->message_type());
}

struct walk_s {
    const row_t &keys;
    shown_s *shown;

    void add_row(const std::string &path, value_s value) const {
        row_t row = keys;
        row.emplace_back(path);
        row.push_back(std::move(value));
        shown->rows.rows.push_back(std::move(row));
    }

    void add_element(const pb::Message &element, const std::string &path, int index) const {
        const pb::Descriptor *type = element.GetDescriptor();
        if (is_number_and_value(type)) {
            const uint32_t number = element.GetReflection()->GetUInt32(element, type->field(0));
            add_row(fmt::format("{}[{}]", path, number), field_value(element, type->field(1)));
        } else {
            add_message(element, fmt::format("{}[{}].", path, index));
        }
    }

    void add_list(const pb::Message &message, const pb::FieldDescriptor *field,
                  const std::string &path) const {
        const int size = element_count(message, field);
        const bool is_one_row = is_value(field) && !field->options().GetExtension(types::counter);
        if (size == 0 || is_one_row) {
            add_row(path, field_value(message, field));
            return;
        }
        for (int i = 0; i < size; i++) {
            if (is_value(field)) {
                add_row(fmt::format("{}[{}]", path, i), element_value(message, field, i));
            } else {
                add_element(message_at(message, field, i), path, i);
            }
        }
    }

    void add_field(const pb::Message &message, const pb::FieldDescriptor *field,
                   const std::string &path) const {
        const pb::Reflection &get = *message.GetReflection();
        if (field->is_repeated()) {
            add_list(message, field, path);
        } else if (is_value(field)) {
            add_row(path, field_value(message, field));
        } else if (get.HasField(message, field)) {
            add_message(get.GetMessage(message, field), path + ".");
        } else {
            add_row(path, nullptr);
        }
    }

    void add_message(const pb::Message &message, const std::string &prefix) const {
        const pb::Descriptor *type = message.GetDescriptor();
        for (int i = 0; i < type->field_count(); i++) {
            const pb::FieldDescriptor *field = type->field(i);
            const bool other_member =
                field->real_containing_oneof() && !message.GetReflection()->HasField(message, field);
            if (!other_member && field->name() != "api_status") {
                add_field(message, field, prefix + field->name());
            }
        }
    }
};

}  // namespace

bool is_number_and_value(const pb::Descriptor *type) {
    return type->field_count() == 2 && std::ranges::count(k_index_names, type->field(0)->name()) == 1 &&
           type->field(0)->cpp_type() == pb::FieldDescriptor::CPPTYPE_UINT32 &&
           !type->field(1)->message_type();
}

void append_object(const pb::Message &message, const std::string &prefix, const row_t &keys, shown_s *shown) {
    walk_s{keys, shown}.add_message(message, prefix);
}

shown_s object_head(const std::string &subject, std::vector<std::string> keys) {
    keys.insert(keys.end(), {"field", "value"});
    const size_t count = keys.size() - 1;
    return {.rows = {subject, std::move(keys), {}}, .keys = count};
}

}  // namespace nyxctl
