#include "client/view/list_rows.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "client/core/field_value.h"
#include "client/core/fields.h"
#include "client/core/labels.h"
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
        const bool is_there = field->is_repeated() ? element_count(*message, field) > 0
                                                   : message->GetReflection()->HasField(*message, field);
        if (!is_there) {
            return nullptr;
        }
        message = &message_at(*message, field, element_count(*message, field) - 1);
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

// The field at a dotted path, null for a oneof.
const pb::FieldDescriptor *field_at(const pb::Descriptor *type, std::string_view path) {
    for (size_t dot = path.find('.'); dot != path.npos; dot = path.find('.')) {
        type = field_of(type, path.substr(0, dot))->message_type();
        path.remove_prefix(dot + 1);
    }
    return type->FindOneofByName(std::string(path)) ? nullptr : field_of(type, path);
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

std::string name_of(const view_column_s &column) {
    const std::string_view path = without_marks(column.path);
    return column.title ? column.title : std::string(path.substr(path.rfind('.') + 1));
}

// Null for a column of several fields.
const pb::FieldDescriptor *labelled_field(const view_column_s &column, const pb::Descriptor *type) {
    const std::string_view path = column.path;
    return path.find('|') == path.npos ? field_at(type, without_marks(path)) : nullptr;
}

row_t row_of(const list_view_s &view, const pb::Message &outer, const pb::Message &element) {
    row_t row;
    for (const view_column_s &column : view.columns) {
        const pb::Message &holder = *column.path == '^' ? outer : element;
        const auto *field = labelled_field(column, holder.GetDescriptor());
        const value_s value = column_value(holder, column);
        row.push_back(field && !field->message_type() ? labelled(value, field) : value);
    }
    return row;
}

std::vector<column_s> columns_of(const list_view_s &view, const pb::Descriptor *response) {
    const pb::Descriptor *outer = field_at(response, view.list)->message_type();
    const pb::Descriptor *element = *view.inner ? field_at(outer, view.inner)->message_type() : outer;
    std::vector<column_s> columns;
    for (const view_column_s &column : view.columns) {
        const auto *field = labelled_field(column, *column.path == '^' ? outer : element);
        const label_s *label = field ? label_of(field) : nullptr;
        columns.emplace_back(name_of(column), label ? label->name : "",
                             label ? label->is_short : std::nullopt);
    }
    return columns;
}

// The column of a counter; adds one if no column has its name.
size_t counter_column(const std::string &name, const label_s &label, rows_s *rows) {
    const auto found = std::ranges::find(rows->columns, label.name, &column_s::title);
    const auto index = static_cast<size_t>(found - rows->columns.begin());
    if (found == rows->columns.end()) {
        rows->columns.emplace_back(name, label.name, true);
        for (row_t &row : rows->rows) {
            row.emplace_back();
        }
    }
    return index;
}

// Those in one of the lists of an element, into its row.
void append_counters(const pb::Message &element, std::string_view path, size_t row, rows_s *rows) {
    const auto *list = field_at(element.GetDescriptor(), path);
    const auto *number = list->message_type()->field(0), *value = list->message_type()->field(1);
    for (const pb::Message *counter : elements_at(element, path)) {
        const uint32_t kind = counter->GetReflection()->GetUInt32(*counter, number);
        const label_s *label = label_of(list, kind);
        if (label && label->is_short.value_or(false)) {
            const std::string name = list->name() + "[" + std::to_string(kind) + "]";
            const size_t column = counter_column(name, *label, rows);
            rows->rows[row][column] = labelled(field_value(*counter, value), value);
        }
    }
}

}  // namespace

void append_counters(const list_view_s &view, const pb::Message &response, shown_s *shown) {
    const auto elements = elements_at(response, view.list);
    for (size_t row = 0; row < elements.size(); row++) {
        for (const char *path : view.counters) {
            append_counters(*elements[row], path, row, &shown->rows);
        }
    }
}

value_s column_value(const pb::Message &element, const view_column_s &column) {
    const std::string_view path = column.path;
    return path.find('|') == path.npos ? plain_value(element, path) : first_text(element, path);
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
    auto columns = columns_of(view, response.GetDescriptor());
    shown_s shown = view.flattened
                        ? object_head(view.subject, std::move(columns))
                        : shown_s{.rows = {view.subject, std::move(columns), {}}, .keys = view.keys};
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
