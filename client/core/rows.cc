#include "client/core/rows.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <span>

namespace nyxctl {
namespace {

constexpr size_t k_gap = 2;
constexpr size_t k_least_width = 8;       // of a column that has to be shown
constexpr size_t k_least_cut_width = 16;  // of a column that is cut rather than left out
constexpr std::string_view k_dots = "...";

std::string title_of(const column_s &column) {
    std::string title = column.title.empty() ? column.name : column.title;
    std::ranges::transform(title, title.begin(), [](unsigned char c) { return std::toupper(c); });
    std::ranges::replace(title, '_', ' ');
    return title;
}

bool starts_character(unsigned char c) { return (c & 0xc0) != 0x80; }

// Counts characters of UTF-8: bytes that continue one take no room.
size_t width_of(const std::string &text) {
    return static_cast<size_t>(std::ranges::count_if(text, starts_character));
}

// Of a path the end says more than the beginning.
std::string cut_to(const std::string &text, size_t width, bool is_path) {
    if (width_of(text) <= width) {
        return text;
    }
    size_t kept = width - std::min(width, k_dots.size());
    if (is_path && text.size() == width_of(text)) {
        return std::string(k_dots.substr(0, width)) + text.substr(text.size() - kept);
    }
    const auto end = std::ranges::find_if(text, [&](char c) { return starts_character(c) && kept-- == 0; });
    return std::string(text.begin(), end).append(k_dots.substr(0, width));
}

bool is_number(const value_s &value) {
    return value.is_null() ||
           (value.is_number() && (value.shown().empty() || std::isdigit(value.shown()[0])));
}

struct drawn_column_s {
    std::vector<std::string> texts;  // title first
    bool right = true;               // only numbers
    bool is_path = false;
    size_t width = 0;  // 0: left out
};

drawn_column_s draw_column(const rows_s &rows, size_t index) {
    drawn_column_s column;
    column.texts.push_back(title_of(rows.columns[index]));
    column.is_path = rows.columns[index].name == "field";
    for (const auto &row : rows.rows) {
        column.texts.push_back(cell_text(row[index]));
        column.right = column.right && is_number(row[index]);
    }
    for (const auto &text : column.texts) {
        column.width = std::max(column.width, width_of(text));
    }
    return column;
}

// The columns that are always shown, then those preferred, then the rest.
std::vector<size_t> order_of_use(const rows_s &rows, size_t always) {
    const auto rank = [&](size_t i) {
        const auto preferred = rows.columns[i].preferred;
        return i < always ? 0 : !preferred ? 2 : *preferred ? 1 : 3;
    };
    std::vector<size_t> order(rows.columns.size());
    std::iota(order.begin(), order.end(), 0);
    std::ranges::stable_sort(order, {}, rank);
    return order;
}

// Narrows the widest of the columns until all of them fit.
void narrow(std::span<drawn_column_s> columns, size_t width) {
    const auto total = [&] {
        size_t sum = 0;
        std::ranges::for_each(columns, [&](const auto &column) { sum += column.width + k_gap; });
        return sum - k_gap;
    };
    while (!columns.empty() && total() > width) {
        auto widest = std::ranges::max_element(columns, {}, &drawn_column_s::width);
        if (widest->width <= k_least_width) {
            return;
        }
        widest->width--;
    }
}

void fit(const rows_s &rows, const text_space_s &space, std::vector<drawn_column_s> *columns) {
    const size_t always = std::min(space.always, columns->size());
    narrow({columns->data(), always}, space.width);
    size_t left = space.width + k_gap;
    for (const size_t i : order_of_use(rows, always)) {
        drawn_column_s &column = (*columns)[i];
        const size_t least = i < always ? column.width : std::min(column.width, k_least_cut_width);
        column.width = least + k_gap <= left ? std::min(column.width, left - k_gap) : 0;
        left -= column.width > 0 ? column.width + k_gap : 0;
    }
}

std::string line_of(const std::vector<drawn_column_s> &columns, size_t index) {
    std::string line;
    for (const drawn_column_s &column : columns) {
        if (column.width > 0) {
            const std::string text = cut_to(column.texts[index], column.width, column.is_path);
            const std::string padding(column.width - width_of(text), ' ');
            line += column.right ? padding + text : text + padding;
            line.append(k_gap, ' ');
        }
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

void add_members(const column_s &column, const value_s &cell, bool texts, members_t *members) {
    members->emplace_back(column.name, cell);
    if (texts && !cell.shown().empty()) {
        members->emplace_back(column.name + "_text", cell.shown());
    }
}

}  // namespace

std::string rows_to_text(const rows_s &rows, const text_space_s &space) {
    if (rows.rows.empty()) {
        return "no " + rows.subject + "\n";
    }
    std::vector<drawn_column_s> columns;
    for (size_t i = 0; i < rows.columns.size(); i++) {
        columns.push_back(draw_column(rows, i));
    }
    if (space.width > 0) {
        fit(rows, space, &columns);
    }
    std::string text;
    for (size_t i = 0; i <= rows.rows.size(); i++) {
        text += line_of(columns, i);
    }
    return text;
}

std::string rows_to_json(const rows_s &rows, const members_t &head, bool texts) {
    std::vector<std::string> objects;
    for (const row_t &row : rows.rows) {
        members_t members;
        for (size_t i = 0; i < rows.columns.size(); i++) {
            add_members(rows.columns[i], row[i], texts, &members);
        }
        objects.push_back(json_text(members));
    }
    std::string json = json_text(head);
    json.pop_back();
    return fmt::format("{}{}{}:[{}]}}", json, head.empty() ? "" : ",", json_text(rows.subject),
                       fmt::join(objects, ","));
}

}  // namespace nyxctl
