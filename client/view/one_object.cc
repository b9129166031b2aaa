#include "client/view/one_object.h"

#include <algorithm>
#include <array>

#include "client/core/people_value.h"
#include "nyx/types/net.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

// First fields of elements that count by kind: MacStats.type and its like.
constexpr std::array<std::string_view, 3> k_index_names = {"type", "reasons", "queue"};

bool is_said_in_one(const pb::FieldDescriptor *field) {
    return !field->message_type() || field->message_type() == types::IPAddress::descriptor() ||
           field->message_type() == types::IPPrefix::descriptor();
}

bool is_number_and_value(const pb::Descriptor *type) {
    return type->field_count() == 2 && std::ranges::count(k_index_names, type->field(0)->name()) == 1 &&
           type->field(0)->cpp_type() == pb::FieldDescriptor::CPPTYPE_UINT32 &&
           !type->field(1)->message_type();
}

struct walk_s {
    const std::vector<json_t> &keys;
    shown_s *shown;

    void add_row(const std::string &path, json_t value, unsigned bits) const {
        std::vector<json_t> row = keys;
        row.emplace_back(path);
        row.push_back(std::move(value));
        shown->rows.rows.push_back(std::move(row));
        shown->row_bits.push_back(bits);
    }

    void add_element(const pb::Message &element, const std::string &path, int index) const {
        const pb::Descriptor *type = element.GetDescriptor();
        if (is_number_and_value(type)) {
            const uint32_t number = element.GetReflection()->GetUInt32(element, type->field(0));
            add_row(path + "[" + std::to_string(number) + "]", people_value(element, type->field(1)),
                    counter_bits(type->field(1)));
        } else {
            add_message(element, path + "[" + std::to_string(index) + "].");
        }
    }

    void add_list(const pb::Message &message, const pb::FieldDescriptor *field,
                  const std::string &path) const {
        const pb::Reflection &get = *message.GetReflection();
        const int size = get.FieldSize(message, field);
        if (is_said_in_one(field)) {
            add_numbers(people_value(message, field), path, counter_bits(field));
        } else if (size == 0) {
            add_row(path, json_t::array(), 0);
        }
        for (int i = 0; i < size && !is_said_in_one(field); i++) {
            add_element(get.GetRepeatedMessage(message, field, i), path, i);
        }
    }

    // One row, unless each of them counts for itself.
    void add_numbers(json_t list, const std::string &path, unsigned bits) const {
        if (bits == 0) {
            add_row(path, std::move(list), 0);
        }
        for (size_t i = 0; i < list.size() && bits != 0; i++) {
            add_row(path + "[" + std::to_string(i) + "]", list[i], bits);
        }
    }

    void add_field(const pb::Message &message, const pb::FieldDescriptor *field,
                   const std::string &path) const {
        const pb::Reflection &get = *message.GetReflection();
        if (field->is_repeated()) {
            add_list(message, field, path);
        } else if (is_said_in_one(field)) {
            add_row(path, people_value(message, field), counter_bits(field));
        } else if (get.HasField(message, field)) {
            add_message(get.GetMessage(message, field), path + ".");
        } else {
            add_row(path, nullptr, 0);
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

void append_object(const pb::Message &message, const std::string &prefix, const std::vector<json_t> &keys,
                   shown_s *shown) {
    walk_s{keys, shown}.add_message(message, prefix);
}

shown_s object_head(const std::string &subject, std::vector<std::string> keys) {
    shown_s shown;
    shown.keys = keys.size() + 1;
    shown.column_bits.assign(shown.keys, 0);
    shown.column_bits.push_back(64);
    shown.rows.subject = subject;
    shown.rows.columns = std::move(keys);
    shown.rows.columns.insert(shown.rows.columns.end(), {"field", "value"});
    return shown;
}

}  // namespace nyxctl
