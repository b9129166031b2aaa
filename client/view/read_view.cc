#include "client/view/read_view.h"

#include <ctime>

#include "client/core/fields.h"
#include "client/core/grpc_call.h"
#include "client/core/json_reader.h"
#include "client/core/symbols.h"
#include "client/table/entry_args.h"
#include "client/table/record_rows.h"
#include "client/table/table_calls.h"
#include "client/view/find_object.h"
#include "client/view/list_rows.h"
#include "client/view/one_object.h"
#include "nyx/debug.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using message_t = std::unique_ptr<pb::Message>;

const pb::Message &part_of(const pb::Message &message, const std::string &name) {
    const auto *field = name.empty() ? nullptr : message.GetDescriptor()->FindFieldByName(name);
    return field ? message.GetReflection()->GetMessage(message, field) : message;
}

// Times of the agent are its local ones, which has the zone of this machine if it runs here.
void add_zones(shown_s *shown) {
    for (size_t i = 0; i < shown->rows.columns.size(); i++) {
        for (row_t &row : shown->rows.rows) {
            std::tm parts{};
            const auto *text = row[i].as<std::string>();
            if (shown->rows.columns[i].name == "since" && text && strptime(text->c_str(), "%F %T", &parts)) {
                parts.tm_isdst = -1;
                char zoned[40];
                (void)std::mktime(&parts);
                row[i] = row[i].shown_as({zoned, std::strftime(zoned, sizeof zoned, "%F %T %z", &parts)});
            }
        }
    }
}

constexpr uint32_t k_entries_now = 0;  // types of TableStatsEntry
constexpr uint32_t k_entries_most = 1;

value_s table_count(const nyx::TableStatsResponse &stats, uint32_t type) {
    for (const auto &entry : stats.table_stats().entry()) {
        if (entry.type() == type) return entry.count();
    }
    return nullptr;
}

// The agent may have tables that this client's descriptors do not know.
row_t table_row(const nyx::TableStatsResponse &stats) {
    table_layout_s layout{};
    row_t row = {stats.table_name(), nullptr, nullptr, nullptr};
    if (find_table(stats.table_name(), &layout).ok()) {
        row = {layout.name, layout.ternary() ? "ternary" : "exact", layout.key_size, layout.record_size};
    }
    row.push_back(table_count(stats, k_entries_now));
    row.push_back(table_count(stats, k_entries_most));
    return row;
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
                         shown_s *shown, bool with_counters) {
    message_t response;
    outcome_s outcome = read_method(global, view.method, request, &response);
    *shown = response ? list_rows(view, *response) : shown_s();
    if (response && with_counters) {
        append_counters(view, *response, shown);
    }
    if (global.grpc.starts_with("unix:")) {
        add_zones(shown);
    }
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
    message_t response;
    outcome_s outcome = read_method(global, "DebugSvc.TableStatsGet", "{}", &response);
    if (!response) {
        return outcome;
    }
    shown->rows = {"tables", {"name", "kind", "key_bytes", "record_bytes", "entries", "most_entries"}, {}};
    for (const auto &stats : dynamic_cast<const nyx::TableStatsGetResponse &>(*response).response()) {
        shown->rows.rows.push_back(table_row(stats));
    }
    return outcome;
}

outcome_s read_table_view(const global_options_s &global, const std::string &name,
                          const std::vector<std::string> &key_words, shown_s *shown) {
    *shown = {};
    table_layout_s layout{};
    if (outcome_s outcome = find_table(name, &layout); !outcome.ok()) {
        return outcome;
    }
    const auto key = new_message(layout.key);
    if (outcome_s outcome = fill_key(layout, key_words, false, key.get()); !outcome.ok()) {
        return outcome;
    }
    const auto spec = new_message(layout.spec);
    outcome_s outcome = get_entry(global, layout, *key, spec.get());
    if (outcome.ok()) {
        shown->rows = spec_rows(layout, *spec, true);
        shown->always = shown->rows.columns.size();
    }
    return outcome;
}

}  // namespace nyxctl
