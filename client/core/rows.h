// Rows that a command shows: the same cells as aligned columns for people and as one JSON document for scripts.

#pragma once

#include <string>
#include <vector>

#include "client/core/value.h"

namespace nyxctl {

using row_t = std::vector<value_s>;

struct rows_s {
    std::string subject;               // "ports": the document's key
    std::vector<std::string> columns;  // in JSON as they are, as column titles in upper case
    std::vector<row_t> rows;           // one cell for each column
};

// A line of titles and one line per row, columns two blanks apart, numbers aligned to the right; "no ports" without rows. Ends
// with a newline.
std::string rows_to_text(const rows_s &rows);

// {"ports":[{"id":..., ...}, ...]} in one line, also without rows; with the members of `head` in front.
std::string rows_to_json(const rows_s &rows, const members_t &head = {});

}  // namespace nyxctl
