#include "client/view/list_rows.h"

#include <algorithm>
#include <iterator>
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

// Paths are compiled in, so an unknown name is a fault of this program.
const pb::FieldDescriptor *field_of(const pb::Descriptor *type, std::string_view name) {
    const auto *field = type->FindFieldByName(std::string(name));
    return field ? field
                 : throw std::logic_error("no field " + std::string(name) + " in " + type->full_name());
}

// Sets `path` to its last name. Null when a message on the way is absent.
const pb::Message *message_above(const pb::Message *message, std::string_view *path) {
    for (size_t dot = path->find('.'); dot != path->npos; dot = path->find('.')) {
        const auto *field = field_of(message->GetDescriptor(), path->substr(0, dot));
        if (!message->GetReflection()->HasField(*message, field)) {
            return nullptr;
        }
        message = &message->GetReflection()->GetMessage(*message, field);
        path->remove_prefix(dot + 1);
    }
    return message;
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

row_t row_of(const list_view_s &view, const pb::Message &outer, const pb::Message &element) {
    row_t row;
    for (const view_column_s &column : view.columns) {
        row.push_back(column_value(*column.path == '^' ? outer : element, column));
    }
    return row;
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
    std::vector<std::string> titles;
    std::ranges::transform(view.columns, std::back_inserter(titles), title_of);
    shown_s shown = view.flattened
                        ? object_head(view.subject, std::move(titles))
                        : shown_s{.rows = {view.subject, std::move(titles), {}}, .keys = view.keys};
    for (const pb::Message *outer : elements_at(response, view.list)) {
        const auto rows = *view.inner ? elements_at(*outer, view.inner) : std::vector{outer};
        for (const pb::Message *element : rows) {
            row_t row = row_of(view, *outer, *element);
            if (view.flattened) {
                append_object(*element, "", row, &shown);
            } else {
                shown.rows.rows.push_back(std::move(row));
            }
        }
    }
    return shown;
}

}  // namespace nyxctl
