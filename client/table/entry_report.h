// What the user gets to see and to keep of a stream of entries.

#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "client/core/options.h"
#include "client/core/outcome.h"
#include "client/core/value.h"
#include "client/table/entry_stream.h"

namespace nyxctl {

struct report_options_s {
    bool shows_changes = false;     // each entry that is, or would be, changed, with its old and new values
    std::set<verdict_e> done = {};  // verdicts of entries with which all is well
    std::string word = {};          // "added": what the others were not
    std::string failed_file = {};   // gets the entries to try again
};

class entry_report {
 public:
    entry_report(const global_options_s &global, const table_layout_s &layout, report_options_s options);

    // Opens the file for failures, which must not be one that the entries come from.
    outcome_s open(const entry_source &source);

    // Runs the operation, and prints entries and changes to stdout as they come. Again for another source; the totals add
    // up. Returns why it ended early.
    outcome_s run(entry_source *source, stream_options_s options);

    // Prints the totals. Returns the outcome of it all, with the lines that failed and where to go on.
    outcome_s finish(const outcome_s &ended);

    size_t count(verdict_e verdict) const { return totals_.counts[verdict]; }

 private:
    // Entries that ended alike.
    struct failed_s {
        size_t count = 0;
        std::vector<size_t> lines = {};  // the first
    };

    outcome_s take(const entry_source &source, const stream_options_s &options, const entry_result_s &result);
    outcome_s keep(const entry_source &source, const entry_result_s &result);
    void add_failure(const entry_source &source, const entry_result_s &result);
    outcome_s print(const std::string &element);
    outcome_s flush(size_t unless_below);
    void show_progress(const entry_source &source, const totals_s &totals);
    std::string counts_text() const;
    std::string failures_text() const;
    std::string rest_text(const outcome_s &ended) const;
    members_t members() const;
    void close_document();

    const global_options_s &global_;
    const table_layout_s &layout_;
    const report_options_s options_;
    const bool shows_progress_;
    base::unique_fd failed_file_;
    size_t failed_file_entries_ = 0;
    totals_s totals_;  // of all sources
    bool is_dry_ = false;
    bool is_get_ = false;
    std::string list_ = {};  // what the elements of the JSON document are
    std::string one_ = {};   // the words of a single entry
    std::string out_;
    size_t printed_ = 0;
    std::map<std::string, failed_s> failures_;  // by reason
    size_t not_done_ = 0;
    std::chrono::steady_clock::time_point start_, shown_;
};

}  // namespace nyxctl
