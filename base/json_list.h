// Lists of small objects in JSON: {"hosts": [{"name": "a"}, {"name": "b"}]}.

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/json_scanner.h"

namespace base {

// One element of a list: the texts of the members that were asked for. A member that is itself an object or array has
// an empty text.
template <size_t N>
using json_row = std::array<std::optional<std::string>, N>;

enum json_list_e {
    JSON_LIST_MISSING,
    JSON_LIST_PROPER,  // an array, or an empty string, which is how PropertyTree writes an empty array
    JSON_LIST_ODD,  // an object, which counts as the list of its values, or anything else, which counts as empty
};

// A visitor of json_scanner. Passes on each element of the list that is a member of the top-level object, and skips all
// else. Of members with the same name the first one counts. For one scan.
template <size_t N, class OnRow>
class json_list_visitor {
 public:
    json_list_visitor(std::string_view list, const std::array<std::string_view, N> &members, OnRow on_row)
        : list_(list), members_(members), on_row_(on_row) {}

    json_list_e found() const { return found_; }

    void begin(std::string_view key, bool is_array) {
        if (is_list(key)) {
            found_ = is_array ? JSON_LIST_PROPER : JSON_LIST_ODD;
            in_list_ = true;
        } else if (in_list_ && depth_ == k_element) {
            set_member(key, "");
        }
        depth_++;
    }

    void end() {
        depth_--;
        if (in_list_ && depth_ == k_list) {
            pass_row();
        }
        in_list_ = in_list_ && depth_ >= k_list;
    }

    void value(std::string_view key, std::string_view text) {
        if (is_list(key)) {
            found_ = text.empty() ? JSON_LIST_PROPER : JSON_LIST_ODD;
        } else if (in_list_ && depth_ == k_list) {
            pass_row();
        } else if (in_list_ && depth_ == k_element) {
            set_member(key, text);
        }
    }

 private:
    enum { k_top = 1, k_list = 2, k_element = 3 };  // how many containers are open inside of which

    bool is_list(std::string_view key) const {
        return depth_ == k_top && found_ == JSON_LIST_MISSING && key == list_;
    }

    void set_member(std::string_view key, std::string_view text) {
        const size_t index = static_cast<size_t>(std::ranges::find(members_, key) - members_.begin());
        if (index < N && !row_[index]) {
            row_[index] = text;
        }
    }

    void pass_row() {
        on_row_(row_);
        row_ = {};
    }

    const std::string_view list_;
    const std::array<std::string_view, N> members_;
    OnRow on_row_;
    json_list_e found_ = JSON_LIST_MISSING;
    bool in_list_ = false;
    size_t depth_ = 0;
    json_row<N> row_;
};

// Calls `on_row` with the json_row of each element of the list, in order. Throws std::runtime_error when the text is
// not JSON; `on_row` has then been called with what comes before.
template <size_t N, class OnRow>
json_list_e read_json_list(text_source source, std::string_view list,
                           const std::array<std::string_view, N> &members, OnRow on_row) {
    json_list_visitor<N, OnRow> visitor(list, members, on_row);
    json_scanner(std::move(source), &visitor).run();
    return visitor.found();
}

}  // namespace base
