// The entries, or keys of entries, that a command was given: one by one, from words of the command line or from a file
// of any size, in constant memory.

#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/unique_fd.h"
#include "client/core/json_reader.h"
#include "client/core/outcome.h"
#include "client/table/entry_args.h"
#include "client/table/record_layout.h"

namespace nyxctl {

struct entry_text_s {
    std::string_view text;  // without the line's end; k_json_padding bytes after it are readable
    size_t line = 0;        // that it begins in, from 1
};

// Formats of a file, told apart by its first character: one JSON object in each line, one JSON array of objects, or CSV
// under a line of column names, of which an empty value is not given.
enum entry_format_e { ENTRY_WORDS, ENTRY_JSON_LINES, ENTRY_JSON_ARRAY, ENTRY_CSV };

class entry_source {
 public:
    // Of messages of layout.key, or else layout.spec. The layout must outlive it.
    entry_source(const table_layout_s &layout, bool is_key, bool cut);
    ~entry_source();

    // FIELD=VALUE words, or one "@FILE" or "-". Entries that begin before line `from` are passed over. Failures: a file
    // that can't be read, or column names that the table does not have.
    outcome_s open(const std::vector<std::string> &words, size_t from);

    // Sets `entry` to the next one, whose text is valid until the next call. Returns false at the end and after a failure,
    // which a signal is too; and, unless `may_wait`, when the file's writer has not written it yet.
    bool next(entry_text_s *entry, bool may_wait = true);
    bool is_at_end() const { return is_at_end_ && begin_ == end_; }
    const outcome_s &failure() const { return failure_; }

    // Sets the fields that the entry gives in `message`, and leaves the others. Failures name the field.
    outcome_s read(const entry_text_s &entry, google::protobuf::Message *message);

    // A failure with the file and the line in front.
    outcome_s at(size_t line, const outcome_s &outcome) const;

    // One line that gives the entry again, and what has to come before such lines: the column names of CSV.
    std::string line_of(std::string_view text) const;
    const std::string &head() const { return head_; }

    const table_layout_s &layout() const { return layout_; }
    bool is_key() const { return is_key_; }
    bool is_file() const { return format_ != ENTRY_WORDS; }
    const std::string &name() const { return name_; }  // of the file, as it was given
    size_t bytes() const { return bytes_; }            // of all of the file; 0 when nobody knows
    size_t bytes_done() const { return bytes_before_ + begin_; }

 private:
    class csv_row;

    outcome_s open_file(const std::string &argument);
    outcome_s find_format();
    bool fill();
    bool stop(const outcome_s &failure);
    bool next_line(entry_text_s *entry);
    bool next_element(entry_text_s *entry);
    char next_mark();
    bool skip_blanks();

    const table_layout_s &layout_;
    const bool is_key_;
    const bool cut_;
    entry_format_e format_ = ENTRY_WORDS;
    std::vector<std::string> words_;
    std::string name_;
    base::unique_fd file_;
    int fd_ = -1;
    std::vector<char> buffer_;
    size_t begin_ = 0;  // of what was not taken yet
    size_t end_ = 0;
    size_t bytes_ = 0;
    size_t bytes_before_ = 0;  // of the buffer
    bool may_wait_ = true;
    bool is_at_end_ = false;
    bool is_closed_ = false;  // the JSON array
    size_t line_ = 1;         // at begin_
    size_t from_ = 0;
    std::string head_;
    outcome_s failure_;
    json_reader json_;
    std::unique_ptr<csv_row> row_;
};

}  // namespace nyxctl
