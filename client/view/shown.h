// What a view shows.

#pragma once

#include "client/core/rows.h"

namespace nyxctl {

struct shown_s {
    rows_s rows;
    size_t keys = 1;  // so many of the first columns identify a row
};

// The rows for a terminal: long runs of hexadecimal digits are cut and end with "...".
rows_s rows_for_people(rows_s rows);

}  // namespace nyxctl
