#include "client/view/list_rows.h"

#include <algorithm>

#include "client/core/people_value.h"
#include "client/view/one_object.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

std::string_view last_name(std::string_view path) { return path.substr(path.rfind('.') + 1); }

std::string_view without_marks(std::string_view path) {
    path.remove_prefix(path.starts_with('^') ? 1 : 0);
    path.remove_suffix(path.ends_with('#') || path.ends_with('!') ? 1 : 0);
    return path;
}

// Sets `path` to its last name. Null when a message on the way is absent.
const pb::Message *message_above(const pb::Message *message, std::string_view *path) {
    for (size_t dot = path->find('.'); dot != path->npos; dot = path->find('.')) {
        const auto *field = message->GetDescriptor()->FindFieldByName(std::string(path->substr(0, dot)));
        if (!message->GetReflection()->HasField(*message, field)) {
            return nullptr;
        }
        message = &message->GetReflection()->GetMessage(*message, field);
        path->remove_prefix(dot + 1);
    }
    return message;
}

// "l3" for l3_if_spec
json_t kind_value(const pb::Message &message, const pb::OneofDescriptor *oneof) {
    const auto *field = message.GetReflection()->GetOneofFieldDescriptor(message, oneof);
    if (!field) {
        return nullptr;
    }
    std::string name = field->name();
    name.resize(std::min(name.find("_spec"), name.find("_if_spec")));
    return name;
}

json_t set_flags(const json_t &flags) {
    json_t names = json_t::array();
    for (const auto &[name, value] : flags.items()) {
        if (value.is_boolean() && value.get<bool>()) {
            names.push_back(name);
        }
    }
    return flags.is_null() ? json_t() : names;
}

json_t plain_value(const pb::Message &element, std::string_view path) {
    std::string_view name = path;
    const pb::Message *message = message_above(&element, &name);
    if (!message) {
        return nullptr;
    }
    const auto *oneof = message->GetDescriptor()->FindOneofByName(std::string(name));
    if (oneof) {
        return kind_value(*message, oneof);
    }
    const auto *field = message->GetDescriptor()->FindFieldByName(std::string(name));
    const bool absent = field && field->message_type() && !field->is_repeated() &&
                        !message->GetReflection()->HasField(*message, field);
    return absent ? json_t() : value_at(*message, name);
}

json_t first_text(const pb::Message &element, std::string_view paths) {
    for (;;) {
        const size_t end = paths.find('|');
        const std::string text = cell_text(plain_value(element, paths.substr(0, end)));
        if (text != "-") {
            return text;
        }
        if (end == paths.npos) {
            return nullptr;
        }
        paths.remove_prefix(end + 1);
    }
}

json_t with_text(json_t value, const view_column_s &column) {
    const bool known = value.is_number_unsigned() && value.get<uint64_t>() < column.texts.size();
    const std::string_view text = known ? column.texts[value.get<uint64_t>()] : "";
    return text.empty() ? value : json_t(text);
}

unsigned column_bits(const pb::Descriptor *type, std::string_view path) {
    for (size_t dot = path.find('.'); dot != path.npos; dot = path.find('.')) {
        const auto *field = type->FindFieldByName(std::string(path.substr(0, dot)));
        if (!field) {
            return 0;
        }
        type = field->message_type();
        path.remove_prefix(dot + 1);
    }
    const auto *field = type->FindFieldByName(std::string(path));
    return field ? counter_bits(field) : 0;
}

std::string title_of(const view_column_s &column) {
    return column.title ? column.title : std::string(last_name(without_marks(column.path)));
}

// Of the type of a list's elements; of the outer list's for columns with '^', which do not count.
const pb::Descriptor *element_type(const pb::Descriptor *type, std::string_view path) {
    for (;;) {
        const size_t dot = path.find('.');
        type = type->FindFieldByName(std::string(path.substr(0, dot)))->message_type();
        if (dot == path.npos) {
            return type;
        }
        path.remove_prefix(dot + 1);
    }
}

shown_s head_of(const list_view_s &view, const pb::Descriptor *response) {
    const pb::Descriptor *type = element_type(response, view.list);
    if (*view.inner) {
        type = element_type(type, view.inner);
    }
    shown_s shown{.rows = {view.subject, {}, {}}, .keys = view.keys, .column_bits = {}, .row_bits = {}};
    for (const view_column_s &column : view.columns) {
        shown.rows.columns.push_back(title_of(column));
        shown.column_bits.push_back(*column.path == '^' ? 0 : column_bits(type, column.path));
    }
    return shown;
}

std::vector<json_t> row_of(const list_view_s &view, const pb::Message &outer, const pb::Message &element) {
    std::vector<json_t> row;
    for (const view_column_s &column : view.columns) {
        row.push_back(column_value(*column.path == '^' ? outer : element, column));
    }
    return row;
}

shown_s flattened_rows(const list_view_s &view, const pb::Message &response) {
    std::vector<std::string> keys;
    for (const view_column_s &column : view.columns) {
        keys.push_back(title_of(column));
    }
    shown_s shown = object_head(view.subject, std::move(keys));
    for (const pb::Message *element : elements_at(response, view.list)) {
        append_object(*element, "", row_of(view, *element, *element), &shown);
    }
    return shown;
}

}  // namespace

json_t column_value(const pb::Message &element, const view_column_s &column) {
    const std::string_view path = column.path;
    const std::string_view name = without_marks(path);
    if (path.ends_with('#')) {
        const json_t list = plain_value(element, name);
        return list.size();
    }
    if (path.ends_with('!')) {
        return set_flags(plain_value(element, name));
    }
    return path.find('|') == path.npos ? with_text(plain_value(element, name), column)
                                       : first_text(element, name);
}

std::vector<const pb::Message *> elements_at(const pb::Message &message, std::string_view path) {
    const pb::Message *holder = message_above(&message, &path);
    std::vector<const pb::Message *> elements;
    if (!holder) {
        return elements;
    }
    const auto *field = holder->GetDescriptor()->FindFieldByName(std::string(path));
    for (int i = 0; i < holder->GetReflection()->FieldSize(*holder, field); i++) {
        elements.push_back(&holder->GetReflection()->GetRepeatedMessage(*holder, field, i));
    }
    return elements;
}

shown_s list_rows(const list_view_s &view, const pb::Message &response) {
    if (view.flattened) {
        return flattened_rows(view, response);
    }
    shown_s shown = head_of(view, response.GetDescriptor());
    for (const pb::Message *outer : elements_at(response, view.list)) {
        const auto rows = *view.inner ? elements_at(*outer, view.inner) : std::vector{outer};
        for (const pb::Message *element : rows) {
            shown.rows.rows.push_back(row_of(view, *outer, *element));
        }
    }
    return shown;
}

}  // namespace nyxctl
