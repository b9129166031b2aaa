#include "client/view/rates.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <numeric>

namespace nyxctl {
namespace {

using rows_by_key_t = std::map<std::string, const row_t *>;

// The cells of the key and a number, which tells rows with equal keys apart.
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

// In tenths, to keep the text short.
value_s per_second(uint64_t growth, double seconds) {
    return std::round(static_cast<double>(growth) / seconds * 10) / 10;
}

value_s rate_of(const row_t *before, const row_t &now, size_t column, double seconds) {
    const auto *first = before && column < before->size() ? (*before)[column].as<counter_s>() : nullptr;
    const auto *second = now[column].as<counter_s>();
    if (!first || !second || seconds <= 0) {
        return nullptr;
    }
    const auto growth = counter_growth(first->count, second->count, second->bits);
    return growth ? per_second(*growth, seconds) : value_s("reset");
}

bool has_counters(const rows_s &rows, size_t column) {
    return std::ranges::any_of(rows.rows, [&](const row_t &row) { return row[column].as<counter_s>(); });
}

// Of each row of `now`, the same one of `before`, or null.
std::vector<const row_t *> rows_before(const shown_s &before, const shown_s &now) {
    rows_by_key_t old_rows;
    for (const row_t &row : before.rows.rows) {
        old_rows[key_of(row, before.keys, old_rows)] = &row;
    }
    std::vector<const row_t *> olds;
    rows_by_key_t seen;
    for (const row_t &row : now.rows.rows) {
        const std::string key = key_of(row, now.keys, seen);
        seen[key] = &row;
        const auto found = old_rows.find(key);
        olds.push_back(found == old_rows.end() ? nullptr : found->second);
    }
    return olds;
}

}  // namespace

std::optional<uint64_t> counter_growth(uint64_t before, uint64_t now, unsigned bits) {
    const uint64_t largest = bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
    const uint64_t growth = (now - before) & largest;
    const bool wrapped = growth <= largest / 4;
    return now >= before || wrapped ? std::optional(growth) : std::nullopt;
}

shown_s with_rates(const shown_s &before, const shown_s &now, double seconds) {
    const std::vector<const row_t *> olds = rows_before(before, now);
    shown_s result = now;
    result.rows = {now.rows.subject, {}, std::vector<row_t>(olds.size())};
    for (size_t column = 0; column < now.rows.columns.size(); column++) {
        const bool counts = has_counters(now.rows, column);
        result.rows.columns.push_back(now.rows.columns[column]);
        if (counts) {
            const column_s &counted = now.rows.columns[column];
            result.rows.columns.emplace_back(counted.name + "_per_s",
                                             counted.title.empty() ? "" : counted.title + "/s",
                                             counted.preferred);
        }
        for (size_t i = 0; i < olds.size(); i++) {
            const row_t &row = now.rows.rows[i];
            result.rows.rows[i].push_back(row[column]);
            if (counts) {
                result.rows.rows[i].push_back(rate_of(olds[i], row, column, seconds));
            }
        }
    }
    return result;
}

void keep_changed(const shown_s &before, size_t count, shown_s *now) {
    const std::vector<const row_t *> olds = rows_before(before, *now);
    std::vector<size_t> order(olds.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_partition(order.begin(), order.end(),
                          [&](size_t i) { return olds[i] && *olds[i] != now->rows.rows[i]; });
    order.resize(std::min(count, order.size()));
    std::ranges::sort(order);
    std::vector<row_t> kept;
    std::ranges::transform(order, std::back_inserter(kept), [&](size_t i) { return now->rows.rows[i]; });
    now->left_out += now->rows.rows.size() - kept.size();
    now->rows.rows = std::move(kept);
}

}  // namespace nyxctl
