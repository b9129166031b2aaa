#include "client/view/read_view.h"

#include <algorithm>

#include "client/core/bytes_text.h"
#include "client/core/grpc_call.h"
#include "client/core/json.h"
#include "client/core/nearest.h"
#include "client/core/symbols.h"
#include "client/table/record_layout.h"
#include "client/table/table_rows.h"
#include "client/view/list_rows.h"
#include "client/view/one_object.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_id_size = 16;
constexpr size_t k_named_max = 12;

using message_t = std::unique_ptr<pb::Message>;
using elements_t = std::vector<const pb::Message *>;

const pb::Message &message_at(const pb::Message &message, const std::string &name) {
    const auto *field = name.empty() ? nullptr : message.GetDescriptor()->FindFieldByName(name);
    return field ? message.GetReflection()->GetMessage(message, field) : message;
}

// An id of at least so many bytes in the form that ids are shown in, a short one followed by zeros; all else as it is.
std::string handle_text(const std::string &given, size_t least_size) {
    std::string bytes;
    std::string error;
    if (!bytes_from_text(given, types::BYTES_TEXT_UUID, &bytes, &error) || bytes.size() < least_size ||
        bytes.size() > k_id_size) {
        return given;
    }
    bytes.resize(k_id_size);
    return bytes_to_text(bytes, types::BYTES_TEXT_UUID);
}

// The texts that mean an element. Numbers of 0 and MAC addresses of 0 are no handles.
std::vector<std::string> handles_of(const element_view_s &view, const pb::Message &element) {
    std::vector<std::string> handles;
    for (const char *path : view.handles) {
        const json_t value = column_value(element, {path});
        const std::string text = cell_text(value);
        if (text != "-" && text != "0" && text != "00:00:00:00:00:00") {
            handles.push_back(text);
        }
    }
    return handles;
}

// An id is one element's alone, whatever the names of others are.
elements_t elements_with(const element_view_s &view, const elements_t &elements, const std::string &handle) {
    elements_t found;
    for (const pb::Message *element : elements) {
        const auto handles = handles_of(view, *element);
        if (!handles.empty() && handles.front() == handle) {
            return {element};
        }
        if (std::ranges::count(handles, handle) > 0) {
            found.push_back(element);
        }
    }
    return found;
}

// A name that is also hex digits is rather a name than a short id.
elements_t elements_meant(const element_view_s &view, const elements_t &elements, const std::string &given) {
    const elements_t found = elements_with(view, elements, handle_text(given, k_id_size));
    return found.empty() ? elements_with(view, elements, handle_text(given, 1)) : found;
}

// "1, 2" of ports: the handle behind the id, or the id where there is none.
std::string names_of(const element_view_s &view, const elements_t &elements) {
    std::string names;
    for (size_t i = 0; i < std::min(elements.size(), k_named_max); i++) {
        const auto handles = handles_of(view, *elements[i]);
        if (!handles.empty()) {
            names += (names.empty() ? "" : ", ") + handles[std::min<size_t>(1, handles.size() - 1)];
        }
    }
    return names + (elements.size() > k_named_max ? ", ..." : "");
}

outcome_s unknown_element(const element_view_s &view, const elements_t &elements, const std::string &given) {
    std::vector<std::string> names;
    for (const pb::Message *element : elements) {
        const auto handles = handles_of(view, *element);
        names.insert(names.end(), handles.begin(), handles.end());
    }
    const std::string nearest = elements.size() > k_named_max ? nearest_names_text(given, names) : "";
    const std::string all =
        elements.empty() ? "; the agent has none" : "; there are " + names_of(view, elements);
    return {NYXCTL_EXIT_API_STATUS, std::string("no ") + view.name + " \"" + given + "\"" + nearest + all +
                                        "; see nyxctl show " + view.name + "s"};
}

outcome_s ambiguous_element(const element_view_s &view, const elements_t &found, const std::string &given) {
    std::string ids;
    for (size_t i = 0; i < std::min(found.size(), k_named_max); i++) {
        ids += (i == 0 ? "" : ", ") + cell_text(column_value(*found[i], {view.handles.front()}));
    }
    ids += found.size() > k_named_max ? ", ..." : "";
    return {NYXCTL_EXIT_API_STATUS,
            std::string("several ") + view.name + "s are \"" + given + "\"; give the id: " + ids};
}

bool is_count(const table_layout_s &layout, const json_t &name) {
    return std::ranges::any_of(layout.fields, [&](const record_field_s &field) {
        return field.part == RECORD_DATA && field.width == 8 && field.short_name() == name;
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
    if (outcome_s outcome = json_to_message(json, request.get()); !outcome.ok()) {
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
            append_object(message_at(*response, part.message), part.prefix, {}, shown);
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
    message_t response;
    outcome_s outcome = read_method(global, view.method, "{}", &response);
    if (!response) {
        return outcome;
    }
    const elements_t elements = elements_at(*response, "response");
    const elements_t found = elements_meant(view, elements, given);
    if (found.size() != 1) {
        const auto refuse = found.empty() ? unknown_element : ambiguous_element;
        return outcome.ok() ? refuse(view, found.empty() ? elements : found, given) : outcome;
    }
    *shown = object_head(view.name);
    append_object(*found.front(), "", {}, shown);
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
