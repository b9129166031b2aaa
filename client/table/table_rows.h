// P4 tables and their entries as rows to show.

#pragma once

#include <string>
#include <vector>

#include "client/core/options.h"
#include "client/core/outcome.h"
#include "client/core/rows.h"

namespace nyxctl {

// A row for each table of the agent: name, kind, sizes of its records, entries now and most entries so far. When the
// agent's api_status is not API_STATUS_OK, `rows` holds what came along.
outcome_s read_tables(const global_options_s &global, rows_s *rows);

// Reads the entry with the key that the words (entry_args.h) say, and sets `rows` to its fields, counts as numbers. An
// entry that can't be read ends with NYXCTL_EXIT_API_STATUS and leaves `rows` alone.
outcome_s read_table(const global_options_s &global, const std::string &name,
                     const std::vector<std::string> &key_words, rows_s *rows);

}  // namespace nyxctl
