// What a view shows.

#pragma once

#include "client/core/rows.h"

namespace nyxctl {

struct shown_s {
    rows_s rows;
    size_t keys = 1;               // so many of the first columns identify a row
    size_t always = 1;             // so many of them are shown, however narrow the terminal is
    std::vector<bool> minor = {};  // of each row, whether it is shown only when asked for; empty for none
    size_t left_out = 0;           // minor rows that were
};

// The text for a terminal, or in lines of any length where `width` is 0. Long runs of hexadecimal digits are cut and end
// with "...", unless `whole`. Ends with how many rows were left out.
std::string text_for_people(shown_s shown, size_t width, bool whole = false);

}  // namespace nyxctl
