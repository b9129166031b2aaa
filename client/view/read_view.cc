#include "client/view/read_view.h"

#include <algorithm>

#include "client/core/fields.h"
#include "client/core/grpc_call.h"
#include "client/core/json_reader.h"
#include "client/core/symbols.h"
#include "client/table/record_layout.h"
#include "client/table/table_rows.h"
#include "client/view/find_object.h"
#include "client/view/list_rows.h"
#include "client/view/one_object.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using message_t = std::unique_ptr<pb::Message>;

const pb::Message &part_of(const pb::Message &message, const std::string &name) {
    const auto *field = name.empty() ? nullptr : message.GetDescriptor()->FindFieldByName(name);
    return field ? message.GetReflection()->GetMessage(message, field) : message;
}

bool is_count(const table_layout_s &layout, const value_s &name) {
    return std::ranges::any_of(layout.fields, [&](const record_field_s &field) {
        return field.part == RECORD_DATA && field.width == 8 && name == field.short_name();
    });
}

}  // namespace

outcome_s read_method(const global_options_s &global, const char *name, const std::string &json,
                      message_t *response) {
    const pb::MethodDescriptor *method = nullptr;
    if (outcome_s outcome = find_method(name, &method); !outcome.ok()) {
        return outcome;
    }
    const message_t request = new_message(method->input_type());
    if (outcome_s outcome = read_json(json, request.get()); !outcome.ok()) {
        return outcome;
    }
    *response = new_message(method->output_type());
    outcome_s outcome = checked_call(global, method, *request, response->get());
    if (!outcome.ok() && outcome.exit_code != NYXCTL_EXIT_API_STATUS) {
        response->reset();
    }
    return outcome;
}

outcome_s read_list_view(const global_options_s &global, const list_view_s &view, const std::string &request,
                         shown_s *shown) {
    message_t response;
    outcome_s outcome = read_method(global, view.method, request, &response);
    *shown = response ? list_rows(view, *response) : shown_s();
    return outcome;
}

outcome_s read_object_view(const global_options_s &global, const object_view_s &view, shown_s *shown) {
    *shown = object_head(view.name);
    outcome_s first;
    for (const object_part_s &part : view.parts) {
        message_t response;
        const outcome_s outcome = read_method(global, part.method, "{}", &response);
        if (response && outcome.ok()) {
            append_object(part_of(*response, part.message), part.prefix, {}, shown);
        }
        first = first.ok() ? outcome : first;
    }
    if (shown->rows.rows.empty()) {
        *shown = {};
    }
    return first;
}

outcome_s read_element_view(const global_options_s &global, const element_view_s &view,
                            const std::string &given, shown_s *shown) {
    *shown = {};
    found_object_s found;
    outcome_s outcome = find_object(global, view, given, &found);
    if (found.object) {
        *shown = object_head(view.name);
        append_object(*found.object, "", {}, shown);
    }
    return outcome;
}

outcome_s read_tables_view(const global_options_s &global, shown_s *shown) {
    *shown = {};
    return read_tables(global, &shown->rows);
}

outcome_s read_table_view(const global_options_s &global, const std::string &name,
                          const std::vector<std::string> &key_words, shown_s *shown) {
    *shown = {};
    table_layout_s layout{};
    if (outcome_s outcome = find_table(name, &layout); !outcome.ok()) {
        return outcome;
    }
    shown->column_bits = {0, 64};
    outcome_s outcome = read_table(global, name, key_words, &shown->rows);
    for (const auto &row : shown->rows.rows) {
        shown->row_bits.push_back(is_count(layout, row.front()) ? 64 : 0);
    }
    return outcome;
}

}  // namespace nyxctl
