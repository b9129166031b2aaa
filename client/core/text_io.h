// Text in and out of the process.

#pragma once

#include <string>
#include <string_view>

#include "client/core/options.h"
#include "client/core/outcome.h"
#include "client/core/rows.h"

namespace nyxctl {

// Sets `text` to what an argument means: "-" the whole of stdin, "@FILE" the file, anything else itself.
// What cannot be read, or is longer than 64 MiB, is a local failure.
outcome_s read_argument(const std::string &argument, std::string *text);

// Sets `text` to the file.
outcome_s read_file(const std::string &path, std::string *text);

// Replaces a file, which anybody may read, or creates it. Readers find the old or the new text, whole. Writes to anything
// else, such as a device.
outcome_s replace_file(const std::string &path, std::string_view text);

// Writes everything to stdout, unbuffered. A reader that has left is a failure without a text.
outcome_s write_stdout(std::string_view text);

// The width that text on stdout has to fit: COLUMNS of the environment, or else the terminal's, or 80 if that does not know
// its own. 0 for any width, where stdout is not a terminal. The height is 0 for any in the same way.
size_t stdout_width();
size_t stdout_height();

// Writes a result to stdout: for people the text, for scripts the JSON document over several lines.
outcome_s write_result(const global_options_s &global, std::string_view json, std::string_view text);

// Writes rows to stdout: as columns for people, as one JSON document for scripts.
outcome_s write_rows(const global_options_s &global, const rows_s &rows);

// Prints a failure to stderr, for scripts as one JSON object; prints nothing for a success. Foreign texts in it can
// neither start a line nor reach the terminal as commands.
void print_failure(const outcome_s &outcome, bool json);

}  // namespace nyxctl
