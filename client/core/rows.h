// Rows that a command shows: the same cells as aligned columns for people and as one JSON document for scripts.

#pragma once

#include <string>
#include <vector>

#include "client/core/json_dom.h"

namespace nyxctl {

struct rows_s {
    std::string subject;                    // "ports": the document's key
    std::vector<std::string> columns;       // in JSON as they stand, as column titles in upper case
    std::vector<std::vector<json_t>> rows;  // one cell for each column
};

// A line of titles and one line per row, columns two blanks apart, numbers to the right; "no ports" without rows. Ends
// with a newline.
std::string rows_to_text(const rows_s &rows);

// {"ports": [{"id": ..., ...}, ...]}, also without rows.
json_t rows_to_json(const rows_s &rows);

// Control characters become '?': foreign texts with them could move the cursor, or pretend to be other lines.
std::string without_controls(std::string text);

// A cell as people read it: texts and numbers as they are, "yes" and "no", "-" for null and for an empty text, lists
// divided by commas. Control characters of foreign texts become '?', so that they can't reach the terminal.
std::string cell_text(const json_t &cell);

}  // namespace nyxctl
