// What of a view's rows and columns is shown.

#pragma once

#include <string>
#include <vector>

#include "client/core/outcome.h"
#include "client/view/shown.h"

namespace nyxctl {

// Columns are called by their names, or by their labels as words, in any case.
struct selection_s {
    std::vector<std::string> columns = {};  // in this order; none for all
    std::vector<std::string> where = {};    // COLUMN=VALUE, !=, <, >, ~ (contains); all must hold
    std::string sort = {};                  // column; "" for the agent's order
    bool reverse = false;
    bool all = true;  // minor rows too
};

// Leaves of `shown` what is selected. Values are compared as people read them or as scripts do, numbers by < and > in the
// unit that people see. An unknown column, or a condition that is not one, is a usage failure.
outcome_s select_rows(const selection_s &selection, shown_s *shown);

}  // namespace nyxctl
