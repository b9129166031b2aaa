// Rows that a command shows: the same cells as aligned columns for people and as one JSON document for scripts.

#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/core/value.h"

namespace nyxctl {

using row_t = std::vector<value_s>;

struct column_s {
    column_s(const char *column) : name(column) {}
    column_s(std::string column, std::string column_title = "", std::optional<bool> is_preferred = {})
        : name(std::move(column)), title(std::move(column_title)), preferred(is_preferred) {}
    bool operator==(const column_s &) const = default;

    std::string name;               // in JSON
    std::string title;              // for people in upper case; "" for the name
    std::optional<bool> preferred;  // whether it is the first or the last to be shown where not all fit
};

struct rows_s {
    std::string subject;            // "ports": the document's key
    std::vector<column_s> columns;  // in the order of their use to people
    std::vector<row_t> rows;        // one cell for each column
};

// Where text has to fit.
struct text_space_s {
    size_t width = 0;   // of a line; 0 for any
    size_t always = 1;  // so many of the first columns are shown, cut where they are too wide
};

// A line of titles and one line per row, columns two blanks apart, numbers aligned to the right; "no ports" without rows. Ends
// with a newline. In less space than all columns need, one may be cut ("..."), and those that do not fit are left out.
std::string rows_to_text(const rows_s &rows, const text_space_s &space = {});

// {"ports":[{"id":..., ...}, ...]} in one line, also without rows; with the members of `head` in front. With `texts`, a
// cell that people read in another way has it beside it: "link_state":2,"link_state_text":"up".
std::string rows_to_json(const rows_s &rows, const members_t &head = {}, bool texts = false);

}  // namespace nyxctl
