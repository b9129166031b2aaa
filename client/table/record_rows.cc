#include "client/table/record_rows.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

#include "client/core/field_value.h"
#include "client/core/labels.h"
#include "client/table/record_codec.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_count_size = 8;

const char *kind_of(const table_layout_s &layout) { return layout.ternary() ? "ternary" : "exact"; }

value_s count_value(const std::string &bytes) {
    uint64_t count = 0;
    for (const unsigned char byte : bytes) {
        count = count << 8 | byte;
    }
    return counter_s{count, 64};
}

value_s value_of(const pb::Message &message, const record_field_s &field, bool numbers) {
    const bool count = numbers && field.part == RECORD_DATA && field.width == k_count_size &&
                       field.field->type() == pb::FieldDescriptor::TYPE_BYTES;
    return labelled(count ? count_value(message.GetReflection()->GetString(message, field.field))
                          : field_value(message, field.field),
                    field.field);
}

// "k1", which people read with its label: "src (k1)".
value_s name_of(const record_field_s &field) {
    const std::string name = field.short_name();
    const label_s *label = label_of(field.field);
    return label && !label->name.empty() ? value_s(name).shown_as(fmt::format("{} ({})", label->name, name))
                                         : name;
}

std::string type_text(const pb::FieldDescriptor *field) {
    const auto form = field->options().GetExtension(types::bytes_text);
    const char *text = form == types::BYTES_TEXT_MAC    ? " (MAC)"
                       : form == types::BYTES_TEXT_IPV6 ? " (IPv6)"
                                                        : "";
    return field->type_name() + std::string(text);
}

row_t layout_row(const record_field_s &field) {
    const bool data = field.part == RECORD_DATA;
    return {field.offset,
            field.width,
            name_of(field),
            type_text(field.field),
            field.part == RECORD_KEY ? value_s(field.offset - 1) : value_s(),
            data ? value_s(field.action_id) : value_s(),
            data ? value_s(field.member->name()) : value_s()};
}

// Where the fields of an action's records end; without an action, where all fields but data end.
size_t end_of(const table_layout_s &layout, std::optional<uint32_t> action_id) {
    size_t end = 0;
    for (const record_field_s &field : layout.fields) {
        if (field.part != RECORD_DATA || field.action_id == action_id) {
            end = std::max(end, field.offset + field.width);
        }
    }
    return end;
}

void add_unused(const table_layout_s &layout, const pb::FieldDescriptor *data, rows_s *rows) {
    const auto action = data ? std::optional(action_of(data)) : std::nullopt;
    const size_t end = end_of(layout, action);
    if (end < layout.record_size) {
        rows->rows.push_back({end, layout.record_size - end, nullptr, "unused", nullptr,
                              action ? value_s(*action) : value_s(),
                              data ? value_s(data->name()) : value_s()});
    }
}

std::string part_text(const table_layout_s &layout, record_part_e part, const std::string &name) {
    size_t first = layout.record_size;
    size_t last = 0;
    for (const record_field_s &field : layout.fields) {
        if (field.part == part) {
            first = std::min(first, field.offset);
            last = std::max(last, field.offset + field.width - 1);
        }
    }
    if (last < first) {
        return "";
    }
    return first == last ? fmt::format(" [{} {}]", first, name)
                         : fmt::format(" [{}-{} {}]", first, last, name);
}

std::string actions_text(const table_layout_s &layout) {
    std::vector<uint32_t> actions;
    std::ranges::transform(layout.data, std::back_inserter(actions), action_of);
    return fmt::format("data of action {}", fmt::join(actions, " or "));
}

rows_s empty_rows() { return {.subject = "fields", .columns = {"field", "value"}, .rows = {}}; }

}  // namespace

rows_s all_layout_rows() {
    rows_s rows = {
        .subject = "tables", .columns = {"name", "kind", "key_bytes", "record_bytes", "actions"}, .rows = {}};
    for (const std::string &name : table_names()) {
        table_layout_s layout{};
        static_cast<void>(find_table(name, &layout));
        value_s::list_t actions;
        for (const pb::FieldDescriptor *member : layout.data) {
            actions.push_back(action_of(member));
        }
        rows.rows.push_back({name, kind_of(layout), layout.key_size, layout.record_size, actions});
    }
    return rows;
}

rows_s layout_rows(const table_layout_s &layout) {
    rows_s rows = {.subject = "fields",
                   .columns = {"offset", "bytes", "field", "type", "key_offset", "action", "data"},
                   .rows = {}};
    const record_field_s *before = nullptr;
    for (const record_field_s &field : layout.fields) {
        if (before && before->part == RECORD_DATA && before->member != field.member) {
            add_unused(layout, before->member, &rows);
        }
        rows.rows.push_back(layout_row(field));
        before = &field;
    }
    add_unused(layout, before->part == RECORD_DATA ? before->member : nullptr, &rows);
    return rows;
}

std::string layout_summary(const table_layout_s &layout) {
    const auto part = [&](record_part_e kind, const std::string &name) {
        return part_text(layout, kind, name);
    };
    const std::string parts = part(RECORD_ACTION, "action") + part(RECORD_KEY, "key") +
                              part(RECORD_MASK_FLAG, "mask flag") + part(RECORD_MASK, "mask") +
                              part(RECORD_DATA, actions_text(layout));
    return fmt::format("{}: {}, key record {} byte{}, entry record {} bytes\n{}\n", layout.name,
                       kind_of(layout), layout.key_size, layout.key_size == 1 ? "" : "s", layout.record_size,
                       parts.substr(1));
}

std::string layout_json(const table_layout_s &layout) {
    return rows_to_json(layout_rows(layout), {{"table", layout.name},
                                              {"kind", kind_of(layout)},
                                              {"key_bytes", layout.key_size},
                                              {"record_bytes", layout.record_size}});
}

rows_s spec_rows(const table_layout_s &layout, const pb::Message &spec, bool numbers) {
    rows_s rows = empty_rows();
    const pb::Reflection &get = *spec.GetReflection();
    for (const record_field_s &field : layout.fields) {
        if (!field.member) {
            rows.rows.push_back({name_of(field), field_value(spec, field.field)});
        } else if (field.part == RECORD_KEY || get.HasField(spec, field.member)) {
            rows.rows.push_back(
                {name_of(field), value_of(get.GetMessage(spec, field.member), field, numbers)});
        }
    }
    return rows;
}

rows_s key_rows(const table_layout_s &layout, const pb::Message &key) {
    rows_s rows = empty_rows();
    for (const record_field_s &field : layout.fields) {
        if (field.part == RECORD_KEY) {
            rows.rows.push_back({name_of(field), labelled(field_value(key, field.field), field.field)});
        }
    }
    return rows;
}

rows_s change_rows(const table_layout_s &layout, const pb::Message &before, const pb::Message &after) {
    rows_s changes = {.subject = "fields", .columns = {"field", "old", "new"}, .rows = {}};
    // Missing bytes of a message are zeros in the record.
    const std::unique_ptr<pb::Message> stored(after.New());
    (void)decode_record(layout, encode_record(layout, after), stored.get());
    const rows_s new_rows = spec_rows(layout, *stored);
    const auto value_in = [](const rows_s &rows, const value_s &name) {
        const auto found = std::ranges::find(rows.rows, name, [](const row_t &row) { return row[0]; });
        return found == rows.rows.end() ? value_s() : (*found)[1];
    };
    const rows_s old_rows = spec_rows(layout, before);
    for (const row_t &row : new_rows.rows) {
        const value_s old = value_in(old_rows, row[0]);
        if (old != row[1]) changes.rows.push_back({row[0], old, row[1]});
    }
    for (const row_t &row : old_rows.rows) {
        if (value_in(new_rows, row[0]).is_null()) changes.rows.push_back({row[0], row[1], nullptr});
    }
    return changes;
}

std::string key_text(const table_layout_s &layout, const pb::Message &key) {
    std::vector<std::string> words;
    const std::string record = encode_key(layout, key);
    for (const record_field_s &field : layout.fields) {
        const bool is_key = field.part == RECORD_KEY;
        if (is_key && record.find_first_not_of('\0', field.offset - 1) < field.offset - 1 + field.width) {
            words.push_back(
                fmt::format("{}={}", field.short_name(), cell_text(field_value(key, field.field))));
        }
    }
    return words.empty() ? "a key of zeros" : fmt::format("{}", fmt::join(words, " "));
}

}  // namespace nyxctl
