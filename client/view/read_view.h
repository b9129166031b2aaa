// Views read from the agent.

#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

#include "client/core/options.h"
#include "client/core/outcome.h"
#include "client/view/shown.h"
#include "client/view/views.h"

namespace nyxctl {

// Each sets `shown` to what the agent sent, also when its api_status is not API_STATUS_OK; the outcome is then
// NYXCTL_EXIT_API_STATUS. After any other failure `shown` has no columns.
outcome_s read_list_view(const global_options_s &global, const list_view_s &view, const std::string &request,
                         shown_s *shown, bool with_counters = false);
outcome_s read_object_view(const global_options_s &global, const object_view_s &view, shown_s *shown);

// The object that find_object() finds.
outcome_s read_element_view(const global_options_s &global, const element_view_s &view,
                            const std::string &handle, shown_s *shown);

// A row for each table of the agent: name, kind, sizes of its records, entries now and most entries so far; and the
// fields of the entry with the key that the words say (entry_args.h), counts as counters.
outcome_s read_tables_view(const global_options_s &global, shown_s *shown);
outcome_s read_table_view(const global_options_s &global, const std::string &name,
                          const std::vector<std::string> &key_words, shown_s *shown);

// Calls a method of the client's own data with a JSON request. Sets `response` whenever there is one; an api_status
// that is not API_STATUS_OK is NYXCTL_EXIT_API_STATUS.
outcome_s read_method(const global_options_s &global, const char *method, const std::string &request,
                      std::unique_ptr<google::protobuf::Message> *response);

}  // namespace nyxctl
