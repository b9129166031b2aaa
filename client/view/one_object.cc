#include "client/view/one_object.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <array>

#include "client/core/field_value.h"
#include "client/core/fields.h"
#include "client/core/labels.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

// First fields of elements that count by kind, such as MacStats.type.
constexpr std::array<std::string_view, 3> k_index_names = {"type", "reasons", "queue"};

bool is_value(const pb::FieldDescriptor *field) {
    return !field->message_type() || is_one_value(field->message_type());
}

// Where a field is: for scripts, and for people by the names of its labels.
struct path_s {
    std::string names;
    std::string labels;
    bool minor = false;

    path_s below() const { return {names + ".", labels + ".", minor}; }
    path_s to(const pb::FieldDescriptor *field) const {
        const label_s *label = label_of(field);
        return {names + field->name(), labels + label_name(field), is_minor(label)};
    }
    path_s at(const pb::FieldDescriptor *list, uint64_t number) const {
        const label_s *label = label_of(list, number);
        const std::string index = fmt::format("[{}]", number);
        const bool has_name = label && !label->name.empty();
        return {names + index,
                has_name ? labels.substr(0, labels.rfind('.') + 1) + label->name : labels + index,
                is_minor(label)};
    }

 private:
    bool is_minor(const label_s *label) const { return label && label->is_short ? !*label->is_short : minor; }
};

struct walk_s {
    const row_t &keys;
    shown_s *shown;

    // Of the elements of a list, those that count nothing are minor.
    void add_counter_row(path_s path, const value_s &value) const {
        const auto *counter = value.as<counter_s>();
        path.minor = path.minor || (counter && counter->count == 0);
        add_row(path, value);
    }

    void add_row(const path_s &path, value_s value) const {
        row_t row = keys;
        row.push_back(path.labels == path.names ? path.names : value_s(path.names).shown_as(path.labels));
        row.push_back(std::move(value));
        shown->rows.rows.push_back(std::move(row));
        shown->minor.resize(shown->rows.rows.size() - 1);
        shown->minor.push_back(path.minor);
    }

    void add_element(const pb::FieldDescriptor *list, const pb::Message &element, const path_s &path,
                     int index) const {
        const pb::Descriptor *type = element.GetDescriptor();
        if (is_number_and_value(type)) {
            const uint32_t number = element.GetReflection()->GetUInt32(element, type->field(0));
            const value_s value = labelled(field_value(element, type->field(1)), type->field(1));
            add_counter_row(path.at(list, number), labelled(value, list, number));
        } else {
            add_message(element, path.at(list, index).below());
        }
    }

    void add_list(const pb::Message &message, const pb::FieldDescriptor *field, const path_s &path) const {
        const int size = element_count(message, field);
        const bool is_one_row = is_value(field) && !field->options().GetExtension(types::counter);
        if (size == 0 || is_one_row) {
            add_row(path, labelled(field_value(message, field), field));
            return;
        }
        for (int i = 0; i < size; i++) {
            if (is_value(field)) {
                add_counter_row(path.at(field, i), labelled(element_value(message, field, i), field, i));
            } else {
                add_element(field, message_at(message, field, i), path, i);
            }
        }
    }

    void add_field(const pb::Message &message, const pb::FieldDescriptor *field, const path_s &path) const {
        const pb::Reflection &get = *message.GetReflection();
        if (field->is_repeated()) {
            add_list(message, field, path);
        } else if (is_value(field)) {
            add_row(path, labelled(field_value(message, field), field));
        } else if (get.HasField(message, field)) {
            add_message(get.GetMessage(message, field), path.below());
        } else {
            add_row(path, nullptr);
        }
    }

    void add_message(const pb::Message &message, const path_s &path) const {
        const pb::Descriptor *type = message.GetDescriptor();
        for (int i = 0; i < type->field_count(); i++) {
            const pb::FieldDescriptor *field = type->field(i);
            const bool other_member =
                field->real_containing_oneof() && !message.GetReflection()->HasField(message, field);
            if (!other_member && field->name() != "api_status") {
                add_field(message, field, path.to(field));
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
    walk_s{keys, shown}.add_message(message, {prefix, prefix});
}

shown_s object_head(const std::string &subject, std::vector<column_s> keys) {
    keys.insert(keys.end(), {"field", "value"});
    const size_t count = keys.size() - 1;
    return {.rows = {subject, std::move(keys), {}}, .keys = count, .always = count + 1};
}

}  // namespace nyxctl
