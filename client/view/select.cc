#include "client/view/select.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "base/nearest_names.h"
#include "client/core/labels.h"

namespace nyxctl {
namespace {

struct condition_s {
    size_t column;
    std::string op;
    std::string value;  // in lower case
};

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// The number that a text begins with: 58 of "58 °C".
std::optional<double> number_of(const std::string &text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

outcome_s find_column(const rows_s &rows, const std::string &name, size_t *index) {
    std::vector<std::string> names;
    for (const column_s &column : rows.columns) {
        const std::string word = label_word(column.title);
        if (lower(name) == lower(column.name) || lower(name) == word) {
            *index = names.size();
            return {};
        }
        names.push_back(word.empty() ? column.name : word);
    }
    return usage_failure(fmt::format("unknown column \"{}\"{}; give one of {}", name,
                                     base::nearest_names_text(name, names), fmt::join(names, ", ")));
}

outcome_s read_condition(const rows_s &rows, const std::string &text, condition_s *condition) {
    const size_t at = text.find_first_of("=!<>~");
    const size_t size = text.compare(at == text.npos ? 0 : at, 2, "!=") == 0 ? 2 : 1;
    if (at == 0 || at == text.npos || (text[at] == '!' && size == 1)) {
        return usage_failure(
            fmt::format("invalid condition \"{}\"; give COLUMN=VALUE, or !=, <, > or ~ for =", text));
    }
    condition->op = text.substr(at, size);
    condition->value = lower(text.substr(at + size));
    if (std::string("<>").find(condition->op) != std::string::npos && !number_of(condition->value)) {
        return usage_failure(
            fmt::format("invalid condition \"{}\"; give a number after {}", text, condition->op));
    }
    return find_column(rows, text.substr(0, at), &condition->column);
}

// As people read it, as scripts do, and with the short name of an enumerator.
std::vector<std::string> texts_of(const value_s &cell) {
    std::vector<std::string> texts = {lower(cell_text(cell)), lower(plain_text(cell))};
    if (const auto *enumerator = cell.as<enumerator_s>()) {
        texts.push_back(lower(enumerator->name));
    }
    return texts;
}

bool holds(const condition_s &condition, const row_t &row) {
    const value_s &cell = row[condition.column];
    if (condition.op == "<" || condition.op == ">") {
        const auto number = number_of(cell_text(cell));
        const double bound = *number_of(condition.value);
        return number && (condition.op == "<" ? *number < bound : *number > bound);
    }
    const auto texts = texts_of(cell);
    const bool found = std::ranges::any_of(texts, [&](const std::string &text) {
        return condition.op == "~" ? text.find(condition.value) != text.npos : text == condition.value;
    });
    return found != (condition.op == "!=");
}

// Numbers before texts, and nothing last.
bool is_before(const value_s &a, const value_s &b) {
    const auto rank = [](const value_s &value) { return value.is_null() ? 2 : value.is_number() ? 0 : 1; };
    if (rank(a) != rank(b) || rank(a) == 2) {
        return rank(a) < rank(b);
    }
    return rank(a) == 0 ? number_of(plain_text(a)) < number_of(plain_text(b)) : cell_text(a) < cell_text(b);
}

template <class Keep>
void keep_rows(shown_s *shown, Keep keep) {
    size_t kept = 0;
    shown->minor.resize(shown->rows.rows.size());
    for (size_t i = 0; i < shown->rows.rows.size(); i++) {
        if (keep(shown->rows.rows[i], shown->minor[i])) {
            std::swap(shown->rows.rows[kept], shown->rows.rows[i]);
            shown->minor[kept++] = shown->minor[i];
        }
    }
    shown->rows.rows.resize(kept);
    shown->minor.resize(kept);
}

outcome_s filter(const selection_s &selection, shown_s *shown) {
    std::vector<condition_s> conditions(selection.where.size());
    for (size_t i = 0; i < conditions.size(); i++) {
        if (outcome_s outcome = read_condition(shown->rows, selection.where[i], &conditions[i]);
            !outcome.ok()) {
            return outcome;
        }
    }
    const size_t before = shown->rows.rows.size();
    keep_rows(shown, [&](const row_t &row, bool) {
        return std::ranges::all_of(conditions,
                                   [&](const condition_s &condition) { return holds(condition, row); });
    });
    // Whoever asks for some rows wants all of those.
    if (!selection.all && before == shown->rows.rows.size()) {
        keep_rows(shown, [](const row_t &, bool minor) { return !minor; });
        shown->left_out = before - shown->rows.rows.size();
    }
    return {};
}

outcome_s sort(const selection_s &selection, rows_s *rows) {
    size_t column = 0;
    outcome_s outcome = find_column(*rows, selection.sort, &column);
    if (outcome.ok()) {
        std::ranges::stable_sort(rows->rows, [&](const row_t &a, const row_t &b) {
            return selection.reverse ? is_before(b[column], a[column]) : is_before(a[column], b[column]);
        });
    }
    return outcome;
}

outcome_s project(const std::vector<std::string> &names, shown_s *shown) {
    rows_s chosen{shown->rows.subject, {}, std::vector<row_t>(shown->rows.rows.size())};
    for (const std::string &name : names) {
        size_t index = 0;
        if (outcome_s outcome = find_column(shown->rows, name, &index); !outcome.ok()) {
            return outcome;
        }
        chosen.columns.push_back(shown->rows.columns[index]);
        for (size_t i = 0; i < chosen.rows.size(); i++) {
            chosen.rows[i].push_back(shown->rows.rows[i][index]);
        }
    }
    shown->rows = std::move(chosen);
    shown->keys = 1;
    shown->always = names.size();
    return {};
}

}  // namespace

outcome_s select_rows(const selection_s &selection, shown_s *shown) {
    outcome_s outcome = filter(selection, shown);
    if (outcome.ok() && !selection.sort.empty()) {
        outcome = sort(selection, &shown->rows);
    }
    return outcome.ok() && !selection.columns.empty() ? project(selection.columns, shown) : outcome;
}

}  // namespace nyxctl
