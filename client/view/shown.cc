#include "client/view/shown.h"

#include <algorithm>
#include <cctype>

namespace nyxctl {
namespace {

constexpr size_t k_hex_max = 64;
constexpr size_t k_hex_kept = 32;

void cut_hex(value_s *cell) {
    const auto *text = cell->as<std::string>();
    if (text && text->size() > k_hex_max &&
        std::ranges::all_of(*text, [](unsigned char c) { return std::isxdigit(c); })) {
        *cell = text->substr(0, k_hex_kept) + "...";
    }
}

}  // namespace

rows_s rows_for_people(rows_s rows) {
    for (auto &row : rows.rows) {
        std::ranges::for_each(row, [](value_s &cell) { cut_hex(&cell); });
    }
    return rows;
}

}  // namespace nyxctl
