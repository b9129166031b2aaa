#include "client/core/json_reader.h"

#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "client/core/field_value.h"
#include "client/core/fields.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using json_sax_t = nlohmann::json_sax<nlohmann::json>;

// An object or a list that is open.
struct open_s {
    // What the object fills, or what has the list. Null, like the field, for the list of all messages.
    pb::Message *message;
    const pb::FieldDescriptor *field = nullptr;  // that the next value is for
    bool is_list = false;
    int index = 0;         // of the next element of a list
    std::string key = "";  // of an object, as it was given
};

// Takes the parser's events. Each returns false after the first refusal, which ends the parsing.
class json_reader final : public json_sax_t {
 public:
    json_reader(pb::Message *message, fit_e fit)
        : type_(message->GetDescriptor()), fit_(fit), root_(message) {}
    json_reader(const pb::Descriptor *type, const take_message_t &take, fit_e fit)
        : type_(type), fit_(fit), take_(take) {}

    bool null() override { return field() && !is_in_list() ? true : refuse_kind("null"); }
    bool boolean(bool truth) override { return put("boolean", truth ? "true" : "false"); }
    bool number_integer(number_integer_t number) override { return put("number", fmt::to_string(number)); }
    bool number_unsigned(number_unsigned_t number) override { return put("number", fmt::to_string(number)); }
    bool number_float(number_float_t number, const string_t &text) override {
        const bool is_whole = std::trunc(number) == number && std::abs(number) < 1e18;  // 1e3, 5.0
        return put("number", is_whole ? fmt::to_string(static_cast<int64_t>(number)) : text);
    }
    bool string(string_t &text) override { return put("string", text); }
    bool binary(binary_t &) override { return refuse_kind("binary"); }

    bool start_object(size_t) override {
        if (open_.size() == k_json_depth_max) {
            return refuse(fmt::format("nested deeper than {} levels", k_json_depth_max));
        }
        const bool fits = field() ? field()->message_type() && is_one_here() : is_in_list() == bool(take_);
        if (!fits) {
            return refuse_kind("object");
        }
        if (!field() && take_) {
            taken_message_ = new_message(type_);
            root_ = taken_message_.get();
        }
        open_.push_back({.message = field() ? new_child() : root_});
        return true;
    }

    bool key(string_t &key) override {
        open_s &at = open_.back();
        at.key = key;
        const pb::Descriptor *type = at.message->GetDescriptor();
        at.field = find_field(type, key);
        if (!at.field) {
            return refuse(unknown_field_text({&type, 1}, key));
        }
        const pb::Reflection *reflection = at.message->GetReflection();
        const bool is_set = at.field->is_repeated() ? reflection->FieldSize(*at.message, at.field) > 0
                                                    : reflection->HasField(*at.message, at.field);
        const std::string error = is_set ? "given twice" : oneof_error(*at.message, at.field);
        return error.empty() || refuse(error);
    }

    bool end_object() override {
        open_.pop_back();
        return end_element();
    }

    bool start_array(size_t) override {
        const bool fits = field() ? field()->is_repeated() && !is_in_list() : open_.empty() && take_;
        if (!fits) {
            return refuse_kind("array");
        }
        open_.push_back(
            {.message = field() ? open_.back().message : nullptr, .field = field(), .is_list = true});
        return true;
    }

    bool end_array() override {
        open_.pop_back();
        return true;
    }

    bool parse_error(size_t, const std::string &, const nlohmann::detail::exception &error) override {
        error_ = json_error_text(error.what());
        return false;
    }

    outcome_s outcome() const {
        return error_.empty() ? taken_
                              : usage_failure(fmt::format("JSON of {}: {}", type_->full_name(), error_));
    }

 private:
    // That the next value is for; null for a whole message.
    const pb::FieldDescriptor *field() const { return open_.empty() ? nullptr : open_.back().field; }
    bool is_in_list() const { return !open_.empty() && open_.back().is_list; }
    bool is_one_here() const { return field()->is_repeated() == is_in_list(); }

    bool refuse(const std::string &reason) {
        error_ = path().empty() ? reason : path() + ": " + reason;
        return false;
    }

    bool refuse_kind(std::string_view found) {
        return refuse(fmt::format("found {}, but give {}", found, wanted()));
    }

    std::string wanted() const {
        const pb::Descriptor *type = field() ? field()->message_type() : type_;
        if (field() ? !is_one_here() : take_ && open_.empty()) {
            return "a list: [...]";
        }
        if (type) {
            return fmt::format("a JSON object; see nyxctl describe {}", type->full_name());
        }
        return field()->cpp_type() == pb::FieldDescriptor::CPPTYPE_STRING ? "a JSON string" : "one value";
    }

    // "key[1].k1", without the place in the list of all messages.
    std::string path() const {
        std::string path;
        for (const open_s &at : open_) {
            if (at.is_list) {
                path += at.field ? fmt::format("[{}]", at.index) : "";
            } else {
                path += (path.empty() ? "" : ".") + at.key;
            }
        }
        return path;
    }

    pb::Message *new_child() { return mutable_message_at(open_.back().message, field(), open_.back().index); }

    bool put(std::string_view found, std::string_view text) {
        const pb::Descriptor *type = field() ? field()->message_type() : type_;
        const bool wants_string =
            type ? field() && is_one_value(type) : field()->cpp_type() == pb::FieldDescriptor::CPPTYPE_STRING;
        const bool is_string = found == "string";
        if (!field() || !is_one_here() || (type && !wants_string) || (wants_string && !is_string)) {
            return refuse_kind(found);
        }
        const std::string error =
            type ? set_from_text(new_child(), text)
                 : set_from_text(open_.back().message, field(), open_.back().index, text, fit_);
        return error.empty() ? end_element() : refuse(error);
    }

    bool end_element() {
        if (is_in_list()) {
            open_.back().index++;
        }
        if (taken_message_ && !field()) {
            taken_ = take_(std::move(taken_message_));
        }
        return taken_.ok();
    }

    const pb::Descriptor *const type_;
    const fit_e fit_;
    const take_message_t take_;
    pb::Message *root_ = nullptr;
    std::unique_ptr<pb::Message> taken_message_;
    std::vector<open_s> open_;
    std::string error_;
    outcome_s taken_;
};

outcome_s run(std::string_view json, json_reader *reader) {
    (void)nlohmann::json::sax_parse(json, reader);
    return reader->outcome();
}

}  // namespace

// "[json.exception.parse_error.101] parse error at line 1 ..."
std::string json_error_text(std::string_view what) {
    const size_t end = what.starts_with('[') ? what.find("] ") : what.npos;
    return std::string(end == what.npos ? what : what.substr(end + 2));
}

outcome_s read_json(std::string_view json, pb::Message *message, fit_e fit) {
    message->Clear();
    json_reader reader(message, fit);
    return run(json, &reader);
}

outcome_s read_json_list(std::string_view json, const pb::Descriptor *type, const take_message_t &take,
                         fit_e fit) {
    json_reader reader(type, take, fit);
    return run(json, &reader);
}

}  // namespace nyxctl
