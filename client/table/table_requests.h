// Requests of the table service about any table.

#pragma once

#include <google/protobuf/message.h>

#include <string>

#include "client/core/options.h"
#include "client/core/outcome.h"
#include "client/core/rows.h"
#include "client/table/entry_list.h"
#include "client/table/record_layout.h"

namespace nyxctl {

// Entries in one request at most.
constexpr size_t k_entries_per_request = 1000;

// Reads one entry into `spec`. One that can't be read ends with NYXCTL_EXIT_API_STATUS, because the service reports no
// more about it.
outcome_s get_entry(const global_options_s &global, const table_layout_s &layout,
                    const google::protobuf::Message &key, google::protobuf::Message *spec);

// Sends all entries, Specs for "Create" and "Update", keys for "Delete" and "Get". An api_status that is not
// API_STATUS_OK does not stop the later requests; the failure at the end names the entries, counted from 1. A call
// that fails otherwise ends it all, and says how many entries were done before. `rows` gets a row for each answer:
// first and last entry, and its api_status. `specs` gets what a Get read, without the entries that could not be read.
outcome_s send_entries(const global_options_s &global, const table_layout_s &layout,
                       const std::string &operation, entries_t entries, const progress_t &progress,
                       rows_s *rows, message_list_t *specs);

}  // namespace nyxctl
