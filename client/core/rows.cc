#include "client/core/rows.h"

#include <algorithm>
#include <cctype>

namespace nyxctl {
namespace {

constexpr size_t k_gap = 2;

std::string list_text(const json_t &list) {
    std::string text;
    for (const json_t &element : list) {
        text += (text.empty() ? "" : ",") + cell_text(element);
    }
    return text.empty() ? "-" : text;
}

std::string title_of(std::string column) {
    std::ranges::transform(column, column.begin(), [](unsigned char c) { return std::toupper(c); });
    std::ranges::replace(column, '_', ' ');
    return column;
}

// UTF-8: bytes that continue a character take no room.
size_t width_of(const std::string &text) {
    return static_cast<size_t>(
        std::ranges::count_if(text, [](unsigned char c) { return (c & 0xc0) != 0x80; }));
}

struct column_s {
    std::vector<std::string> texts;  // title first
    bool right = true;               // numbers alone
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

std::string without_controls(std::string text) {
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return text;
}

std::string cell_text(const json_t &cell) {
    if (cell.is_null()) return "-";
    if (cell.is_boolean()) return cell.get<bool>() ? "yes" : "no";
    if (cell.is_array()) return list_text(cell);
    if (!cell.is_string()) return dump_json(cell);
    const std::string text = without_controls(cell.get<std::string>());
    return text.empty() ? "-" : text;
}

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

json_t rows_to_json(const rows_s &rows) {
    json_t list = json_t::array();
    for (const auto &row : rows.rows) {
        json_t object = json_t::object();
        for (size_t i = 0; i < rows.columns.size(); i++) {
            object[rows.columns[i]] = row[i];
        }
        list.push_back(std::move(object));
    }
    return {{rows.subject, std::move(list)}};
}

}  // namespace nyxctl
