#include "client/view/list_rows.h"

#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <stdexcept>

#include "client/core/field_value.h"
#include "client/core/fields.h"
#include "client/view/one_object.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

std::string_view without_marks(std::string_view path) {
    path.remove_prefix(path.starts_with('^') ? 1 : 0);
    path.remove_suffix(path.ends_with('#') || path.ends_with('!') ? 1 : 0);
    return path;
}

// Paths are the program's own.
const pb::FieldDescriptor *field_of(const pb::Descriptor *type, std::string_view name) {
    const auto *field = type->FindFieldByName(std::string(name));
    return field ? field
                 : throw std::logic_error("no field " + std::string(name) + " in " + type->full_name());
}

// Cuts the first name off a path that has more than one.
bool next_name(std::string_view *path, std::string_view *name) {
    const size_t dot = path->find('.');
    if (dot == path->npos) {
        return false;
    }
    *name = path->substr(0, dot);
    path->remove_prefix(dot + 1);
    return true;
}

// Sets `path` to its last name. Null when a message on the way is absent.
const pb::Message *message_above(const pb::Message *message, std::string_view *path) {
    for (std::string_view name; next_name(path, &name);) {
        const auto *field = field_of(message->GetDescriptor(), name);
        if (!message->GetReflection()->HasField(*message, field)) {
            return nullptr;
        }
        message = &message->GetReflection()->GetMessage(*message, field);
    }
    return message;
}

const pb::FieldDescriptor *field_at(const pb::Descriptor *type, std::string_view path) {
    for (std::string_view name; next_name(&path, &name);) {
        type = field_of(type, name)->message_type();
    }
    return type->FindFieldByName(std::string(path));
}

// "l3" for l3_if_spec
value_s kind_value(const pb::Message &message, const pb::OneofDescriptor *oneof) {
    const auto *field = message.GetReflection()->GetOneofFieldDescriptor(message, oneof);
    if (!field) {
        return nullptr;
    }
    return field->name().substr(0, std::min(field->name().find("_spec"), field->name().find("_if_spec")));
}

value_s set_flags(const pb::Message &flags) {
    value_s::list_t names;
    for (int i = 0; i < flags.GetDescriptor()->field_count(); i++) {
        const auto *field = flags.GetDescriptor()->field(i);
        if (field->type() == pb::FieldDescriptor::TYPE_BOOL && flags.GetReflection()->GetBool(flags, field)) {
            names.emplace_back(field->name());
        }
    }
    return names;
}

value_s plain_value(const pb::Message &element, std::string_view path) {
    const char mark = path.back();
    std::string_view name = without_marks(path);
    const pb::Message *holder = message_above(&element, &name);
    if (!holder) {
        return mark == '#' ? value_s(0) : value_s();
    }
    if (const auto *oneof = holder->GetDescriptor()->FindOneofByName(std::string(name))) {
        return kind_value(*holder, oneof);
    }
    const auto *field = field_of(holder->GetDescriptor(), name);
    if (mark == '#') {
        return element_count(*holder, field);
    }
    if (mark == '!') {
        return holder->GetReflection()->HasField(*holder, field)
                   ? set_flags(holder->GetReflection()->GetMessage(*holder, field))
                   : value_s();
    }
    return field_value(*holder, field);
}

value_s first_text(const pb::Message &element, std::string_view paths) {
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

std::string title_of(const view_column_s &column) {
    const std::string_view path = without_marks(column.path);
    return column.title ? column.title : std::string(path.substr(path.rfind('.') + 1));
}

// Columns with marks do not count.
unsigned bits_of(const pb::Descriptor *type, std::string_view path) {
    const bool is_plain = path.find_first_of("^#!|") == path.npos;
    const auto *field = is_plain ? field_at(type, path) : nullptr;
    return field ? counter_bits(field) : 0;
}

shown_s head_of(const list_view_s &view, const pb::Descriptor *response) {
    const pb::Descriptor *type = field_at(response, view.list)->message_type();
    type = *view.inner ? field_at(type, view.inner)->message_type() : type;
    shown_s shown{.rows = {view.subject, {}, {}}, .keys = view.keys, .column_bits = {}, .row_bits = {}};
    for (const view_column_s &column : view.columns) {
        shown.rows.columns.push_back(title_of(column));
        shown.column_bits.push_back(bits_of(type, column.path));
    }
    return shown;
}

row_t row_of(const list_view_s &view, const pb::Message &outer, const pb::Message &element) {
    row_t row;
    for (const view_column_s &column : view.columns) {
        row.push_back(column_value(*column.path == '^' ? outer : element, column));
    }
    return row;
}

shown_s flattened_rows(const list_view_s &view, const pb::Message &response) {
    std::vector<std::string> keys;
    std::ranges::transform(view.columns, std::back_inserter(keys), title_of);
    shown_s shown = object_head(view.subject, std::move(keys));
    for (const pb::Message *element : elements_at(response, view.list)) {
        append_object(*element, "", row_of(view, *element, *element), &shown);
    }
    return shown;
}

}  // namespace

value_s column_value(const pb::Message &element, const view_column_s &column) {
    const std::string_view path = column.path;
    value_s value = path.find('|') == path.npos ? plain_value(element, path) : first_text(element, path);
    const auto *number = value.as<uint64_t>();
    const bool has_text = number && *number < column.texts.size() && *column.texts[*number];
    return has_text ? value_s(column.texts[*number]) : value;
}

std::vector<const pb::Message *> elements_at(const pb::Message &message, std::string_view path) {
    const pb::Message *holder = message_above(&message, &path);
    const auto *field = holder ? field_of(holder->GetDescriptor(), path) : nullptr;
    std::vector<const pb::Message *> elements;
    for (int i = 0; field && i < element_count(*holder, field); i++) {
        elements.push_back(&message_at(*holder, field, i));
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
