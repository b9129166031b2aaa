// The P4 tables of the stand-in's card.

#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace sim {

struct table_info_s {
    std::string_view name;
    size_t record_size;  // bytes of an entry record; its key record starts at byte 1
    size_t key_size;     // bytes of a key record
};

// The tables in the slot order of the table service; a table's index here is its number.
std::span<const table_info_s> table_infos();

}  // namespace sim
