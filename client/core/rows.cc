#include "client/core/rows.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>

namespace nyxctl {
namespace {

constexpr size_t k_gap = 2;

std::string title_of(std::string column) {
    std::ranges::transform(column, column.begin(), [](unsigned char c) { return std::toupper(c); });
    std::ranges::replace(column, '_', ' ');
    return column;
}

// Counts characters of UTF-8: bytes that continue one take no room.
size_t width_of(const std::string &text) {
    return static_cast<size_t>(
        std::ranges::count_if(text, [](unsigned char c) { return (c & 0xc0) != 0x80; }));
}

struct column_s {
    std::vector<std::string> texts;  // title first
    bool right = true;               // only numbers
    size_t width = 0;
};

column_s make_column(const rows_s &rows, size_t index) {
    column_s column;
    column.texts.push_back(title_of(rows.columns[index]));
    for (const auto &row : rows.rows) {
        column.texts.push_back(cell_text(row[index]));
        column.right = column.right && (row[index].is_number() || row[index].is_null());
    }
    for (const auto &text : column.texts) {
        column.width = std::max(column.width, width_of(text));
    }
    return column;
}

std::string line_of(const std::vector<column_s> &columns, size_t index) {
    std::string line;
    for (const column_s &column : columns) {
        const std::string &text = column.texts[index];
        const std::string padding(column.width - width_of(text), ' ');
        line += column.right ? padding + text : text + padding;
        line.append(k_gap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

}  // namespace

std::string rows_to_text(const rows_s &rows) {
    if (rows.rows.empty()) {
        return "no " + rows.subject + "\n";
    }
    std::vector<column_s> columns;
    for (size_t i = 0; i < rows.columns.size(); i++) {
        columns.push_back(make_column(rows, i));
    }
    std::string text;
    for (size_t i = 0; i <= rows.rows.size(); i++) {
        text += line_of(columns, i);
    }
    return text;
}

std::string rows_to_json(const rows_s &rows, const members_t &head) {
    std::vector<std::string> objects;
    for (const row_t &row : rows.rows) {
        members_t members;
        for (size_t i = 0; i < rows.columns.size(); i++) {
            members.emplace_back(rows.columns[i], row[i]);
        }
        objects.push_back(json_text(members));
    }
    std::string json = json_text(head);
    json.pop_back();
    return fmt::format("{}{}{}:[{}]}}", json, head.empty() ? "" : ",", json_text(rows.subject),
                       fmt::join(objects, ","));
}

}  // namespace nyxctl
