#include "client/view/rates.h"

#include <cmath>
#include <map>

namespace nyxctl {
namespace {

using rows_by_key_t = std::map<std::string, const row_t *>;

// The cells of the key, and how many rows before have the same.
std::string key_of(const row_t &row, size_t keys, const rows_by_key_t &taken) {
    std::string key;
    for (size_t i = 0; i < keys && i < row.size(); i++) {
        key += cell_text(row[i]) + '\0';
    }
    for (size_t same = 0;; same++) {
        const std::string numbered = key + std::to_string(same);
        if (!taken.contains(numbered)) {
            return numbered;
        }
    }
}

// Tenths are enough for people, and keep the text short.
value_s per_second(uint64_t growth, double seconds) {
    return std::round(static_cast<double>(growth) / seconds * 10) / 10;
}

value_s rate_of(const value_s &before, const value_s &now, unsigned bits, double seconds) {
    const auto *first = before.as<uint64_t>();
    const auto *second = now.as<uint64_t>();
    if (bits == 0 || !first || !second || seconds <= 0) {
        return nullptr;
    }
    const auto growth = counter_growth(*first, *second, bits);
    return growth ? per_second(*growth, seconds) : value_s("reset");
}

unsigned bits_of(const shown_s &shown, size_t row, size_t column) {
    const unsigned bits = column < shown.column_bits.size() ? shown.column_bits[column] : 0;
    return bits == 0 || shown.row_bits.empty() ? bits : shown.row_bits[row];
}

bool counts(const shown_s &shown, size_t column) {
    return column < shown.column_bits.size() && shown.column_bits[column] != 0;
}

void add_titles(const shown_s &shown, std::vector<std::string> *columns) {
    for (size_t i = 0; i < shown.rows.columns.size(); i++) {
        columns->push_back(shown.rows.columns[i]);
        if (counts(shown, i)) {
            columns->push_back(shown.rows.columns[i] + "_per_s");
        }
    }
}

row_t row_with_rates(const shown_s &now, size_t index, const row_t *before, double seconds) {
    const row_t &row = now.rows.rows[index];
    row_t cells;
    for (size_t i = 0; i < row.size(); i++) {
        cells.push_back(row[i]);
        if (counts(now, i)) {
            const bool known = before && i < before->size();
            cells.push_back(known ? rate_of((*before)[i], row[i], bits_of(now, index, i), seconds)
                                  : value_s());
        }
    }
    return cells;
}

}  // namespace

std::optional<uint64_t> counter_growth(uint64_t before, uint64_t now, unsigned bits) {
    const uint64_t largest = bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
    const uint64_t growth = (now - before) & largest;
    const bool wrapped = growth <= largest / 4;
    return now >= before || wrapped ? std::optional(growth) : std::nullopt;
}

shown_s with_rates(const shown_s &before, const shown_s &now, double seconds) {
    rows_by_key_t old_rows;
    for (const auto &row : before.rows.rows) {
        old_rows[key_of(row, before.keys, old_rows)] = &row;
    }
    shown_s result = now;
    result.rows.columns.clear();
    add_titles(now, &result.rows.columns);
    result.rows.rows.clear();
    rows_by_key_t seen;
    for (size_t i = 0; i < now.rows.rows.size(); i++) {
        const std::string key = key_of(now.rows.rows[i], now.keys, seen);
        seen[key] = &now.rows.rows[i];
        const auto found = old_rows.find(key);
        result.rows.rows.push_back(
            row_with_rates(now, i, found == old_rows.end() ? nullptr : found->second, seconds));
    }
    return result;
}

}  // namespace nyxctl
