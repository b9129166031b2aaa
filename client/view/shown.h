// What a view shows, and what of it counts.

#pragma once

#include <google/protobuf/descriptor.h>

#include <vector>

#include "client/core/rows.h"

namespace nyxctl {

struct shown_s {
    rows_s rows;
    size_t keys = 1;                    // so many of the first columns identify a row
    std::vector<unsigned> column_bits;  // width of the counters in a column; 0 or missing: no counters
    std::vector<unsigned> row_bits;     // if any: only these rows hold a counter, of this width
};

// Width of the counter that a field is, or 0.
unsigned counter_bits(const google::protobuf::FieldDescriptor *field);

// The rows for a terminal: long runs of hexadecimal digits are cut and end with "...".
rows_s rows_for_people(rows_s rows);

}  // namespace nyxctl
