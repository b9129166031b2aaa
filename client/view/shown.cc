#include "client/view/shown.h"

#include <fmt/format.h>

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

std::string text_for_people(shown_s shown, size_t width, bool whole) {
    for (auto &row : shown.rows.rows) {
        std::ranges::for_each(row, [&](value_s &cell) { whole ? void() : cut_hex(&cell); });
    }
    std::string text = rows_to_text(shown.rows, {.width = width, .always = shown.always});
    if (shown.left_out > 0) {
        text += fmt::format("{} more rows, of zeros or details; --all shows them\n", shown.left_out);
    }
    return text;
}

}  // namespace nyxctl
