#include "client/table/table_rows.h"

#include "client/core/fields.h"
#include "client/core/grpc_call.h"
#include "client/core/status_fields.h"
#include "client/table/entry_args.h"
#include "client/table/record_rows.h"
#include "client/table/table_requests.h"
#include "nyx/debug.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

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

outcome_s read_tables(const global_options_s &global, rows_s *rows) {
    const auto *service = pb::DescriptorPool::generated_pool()->FindServiceByName("nyx.DebugSvc");
    const auto *method = service->FindMethodByName("TableStatsGet");
    nyx::TableStatsGetResponse response;
    const auto request = new_message(method->input_type());
    if (outcome_s outcome = grpc_call(global, method, *request, &response); !outcome.ok()) {
        return outcome;
    }
    *rows = {.subject = "tables",
             .columns = {"name", "kind", "key_bytes", "record_bytes", "entries", "most_entries"},
             .rows = {}};
    for (const auto &stats : response.response()) {
        rows->rows.push_back(table_row(stats));
    }
    if (const auto failed = failed_api_status(response)) {
        return {NYXCTL_EXIT_API_STATUS, "nyx.DebugSvc/TableStatsGet: " + *failed};
    }
    return {};
}

outcome_s read_table(const global_options_s &global, const std::string &name,
                     const std::vector<std::string> &key_words, rows_s *rows) {
    table_layout_s layout{};
    if (outcome_s outcome = find_table(name, &layout); !outcome.ok()) {
        return outcome;
    }
    const auto key = new_message(layout.key);
    if (outcome_s outcome = fill_key(layout, key_words, false, key.get()); !outcome.ok()) {
        return outcome;
    }
    const auto spec = new_message(layout.spec);
    if (outcome_s outcome = get_entry(global, layout, *key, spec.get()); !outcome.ok()) {
        return outcome;
    }
    *rows = spec_rows(layout, *spec, true);
    return {};
}

}  // namespace nyxctl
