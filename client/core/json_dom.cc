#include "client/core/json_dom.h"

#include <unordered_set>
#include <vector>

#include "client/core/json.h"

namespace nyxctl {
namespace {

// The library puts "[json.exception.parse_error.101] " in front.
std::string without_tag(std::string_view text) {
    const size_t end = text.starts_with('[') ? text.find("] ") : text.npos;
    return std::string(end == text.npos ? text : text.substr(end + 2));
}

// Reads text without building a tree and keeps the first thing that is wrong. The parser's callback could
// watch the tree grow instead, but it looks at all earlier elements of an array after each one.
class json_check final : public nlohmann::json_sax<json_t> {
 public:
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t &) override { return true; }
    bool string(string_t &) override { return true; }
    bool binary(binary_t &) override { return true; }
    bool start_object(size_t) override { return enter(); }
    bool end_object() override { return leave(); }
    bool start_array(size_t) override { return enter(); }
    bool end_array() override { return leave(); }

    bool key(string_t &key) override {
        return keys_.back().insert(key).second ||
               refuse("the key \"" + key + "\" occurs twice in one object");
    }

    bool parse_error(size_t, const std::string &, const json_t::exception &error) override {
        return refuse(without_tag(error.what()));
    }

    const std::string &error() const { return error_; }

 private:
    bool enter() {
        keys_.emplace_back();
        return keys_.size() <= k_json_depth_max ||
               refuse("nested deeper than " + std::to_string(k_json_depth_max) + " levels");
    }

    bool leave() {
        keys_.pop_back();
        return true;
    }

    bool refuse(std::string text) {
        error_ = std::move(text);
        return false;
    }

    std::vector<std::unordered_set<std::string>> keys_;  // of each object or array that is open
    std::string error_;
};

}  // namespace

bool parse_json(std::string_view text, json_t *dom, std::string *error) {
    try {
        json_check check;
        if (!json_t::sax_parse(text, &check)) {
            *error = check.error();
            return false;
        }
        *dom = json_t::parse(text);
    } catch (const json_t::exception &e) {
        *error = without_tag(e.what());
        return false;
    }
    return true;
}

std::string dump_json(const json_t &dom, int indent) {
    return dom.dump(indent, ' ', false, json_t::error_handler_t::replace);
}

}  // namespace nyxctl
