#include "client/core/json_reader.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <bitset>
#include <cmath>
#include <string>
#include <utility>

#include "client/core/fields.h"
#include "client/core/json_dom.h"
#include "client/core/message_plan.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using simdjson::dom::element;
using simdjson::dom::element_type;

const char *kind_name(element_type type) {
    switch (type) {
        case element_type::ARRAY:
            return "array";
        case element_type::OBJECT:
            return "object";
        case element_type::STRING:
            return "string";
        case element_type::BOOL:
            return "boolean";
        case element_type::NULL_VALUE:
            return "null";
        default:
            return "number";
    }
}

// As set_from_text() takes it.
std::string value_text(const element &value) {
    switch (value.type()) {
        case element_type::BOOL:
            return value.get_bool().value_unsafe() ? "true" : "false";
        case element_type::INT64:
            return fmt::to_string(value.get_int64().value_unsafe());
        case element_type::UINT64:
            return fmt::to_string(value.get_uint64().value_unsafe());
        case element_type::DOUBLE: {
            const double number = value.get_double().value_unsafe();
            const bool is_whole = std::trunc(number) == number && std::abs(number) < 1e18;  // 1e3, 5.0
            return is_whole ? fmt::to_string(static_cast<int64_t>(number)) : fmt::to_string(number);
        }
        default:
            return std::string(value.get_string().value_unsafe());
    }
}

std::string wanted_text(const pb::FieldDescriptor *field, bool is_element) {
    if (field->is_repeated() && !is_element) {
        return "a list: [...]";
    }
    if (const pb::Descriptor *type = field->message_type()) {
        return fmt::format("a JSON object; see nyxctl describe {}", type->full_name());
    }
    return field->cpp_type() == pb::FieldDescriptor::CPPTYPE_STRING ? "a JSON string" : "one value";
}

}  // namespace

// Each function returns false after a refusal, and those around it add where it was.
class json_reader::document {
 public:
    outcome_s read(std::string_view json, fit_e fit, pb::Message *message) {
        fit_ = fit;
        error_.clear();
        path_.clear();
        if (parse(json) && read_root(message)) {
            return {};
        }
        return usage_failure(fmt::format("JSON of {}: {}{}{}", message->GetTypeName(), path_,
                                         path_.empty() ? "" : ": ", error_));
    }

 private:
    bool refuse(std::string reason) {
        error_ = std::move(reason);
        return false;
    }

    bool refuse_kind(element_type found, const std::string &wanted) {
        return refuse(fmt::format("found {}, but give {}", kind_name(found), wanted));
    }

    bool refuse_at(std::string_view name) {
        const bool needs_dot = !path_.empty() && path_.front() != '[';
        path_ = std::string(name) + (needs_dot ? "." : "") + path_;
        return false;
    }

    bool parse(std::string_view json) {
        simdjson::error_code error = simdjson::SUCCESS;
        if (parser_.capacity() < json.size()) {
            error = parser_.allocate(2 * json.size(), k_json_depth_max);
        }
        error = error ? error : parser_.parse(json.data(), json.size(), false).get(root_);
        if (!error) {
            return true;
        }
        json_t unused;
        std::string reason;  // with the place, which this parser does not know
        return refuse(parse_json(json, &unused, &reason) ? simdjson::error_message(error) : reason);
    }

    bool read_root(pb::Message *message) {
        return root_.is_object()
                   ? read_object(root_.get_object().value_unsafe(), message)
                   : refuse_kind(root_.type(), fmt::format("a JSON object; see nyxctl describe {}",
                                                           message->GetDescriptor()->full_name()));
    }

    bool read_object(const simdjson::dom::object &object, pb::Message *message) {
        const message_plan_s &plan = plan_of(message->GetDescriptor());
        std::bitset<256> given;  // no message has as many fields
        size_t at = 0;
        for (const auto [key, value] : object) {
            at = plan.find(key, at);
            if (at == plan.fields.size()) {
                const pb::Descriptor *type = message->GetDescriptor();
                refuse(unknown_field_text({&type, 1}, std::string(key)));
                return refuse_at(key);
            }
            const field_plan_s &field = plan.fields[at];
            if (given[at] || !is_alone(field.field, given, *message)) {
                error_ = given[at] ? "given twice" : oneof_error(*message, field.field);
                return refuse_at(key);
            }
            given[at] = !value.is_null();
            if (!read_field(value, field, message)) {
                return refuse_at(key);
            }
            at++;
        }
        return true;
    }

    // Whether no other member of the field's oneof was given.
    static bool is_alone(const pb::FieldDescriptor *field, const std::bitset<256> &given,
                         const pb::Message &message) {
        const pb::OneofDescriptor *oneof = field->real_containing_oneof();
        const auto *member =
            oneof ? message.GetReflection()->GetOneofFieldDescriptor(message, oneof) : nullptr;
        return !member || member == field || !given[static_cast<size_t>(member->index())];
    }

    bool read_field(const element &value, const field_plan_s &plan, pb::Message *message) {
        if (value.is_null()) {
            return true;
        }
        if (!plan.field->is_repeated()) {
            return read_value(value, plan, 0, message);
        }
        if (!value.is_array()) {
            return refuse_kind(value.type(), wanted_text(plan.field, false));
        }
        int index = 0;
        const simdjson::dom::array values = value.get_array().value_unsafe();
        for (const element &each : values) {
            if (!read_value(each, plan, index, message)) {
                return refuse_at(fmt::format("[{}]", index));
            }
            index++;
        }
        return true;
    }

    // One value, of a list the one at `index`.
    bool read_value(const element &value, const field_plan_s &plan, int index, pb::Message *message) {
        const pb::FieldDescriptor *field = plan.field;
        const pb::Descriptor *type = field->message_type();
        if (value.is_object() && type) {
            return read_object(value.get_object().value_unsafe(), mutable_message_at(message, field, index));
        }
        const bool is_text = value.is_string();
        const bool wants_text = type != nullptr || field->cpp_type() == pb::FieldDescriptor::CPPTYPE_STRING;
        if (value.is_object() || value.is_array() || value.is_null() || (type && !is_one_value(type)) ||
            (wants_text && !is_text)) {
            return refuse_kind(value.type(), wanted_text(field, field->is_repeated()));
        }
        if (put_plainly(value, plan, message)) {
            return true;
        }
        const std::string text = value_text(value);
        std::string error = type ? set_from_text(mutable_message_at(message, field, index), text)
                                 : set_from_text(message, field, index, text, fit_);
        return error.empty() || refuse(std::move(error));
    }

    static bool put_plainly(const element &value, const field_plan_s &plan, pb::Message *message) {
        if (value.is_string()) {
            return set_plainly(plan, value.get_string().value_unsafe(), message);
        }
        uint64_t number = 0;
        if (!plan.is_plain_number() || value.get_uint64().get(number) || number > plan.largest) {
            return false;
        }
        plan.set_number(message, number);
        return true;
    }

    simdjson::dom::parser parser_;
    element root_;
    fit_e fit_ = fit_e::type;
    std::string path_;
    std::string error_;
};

json_reader::json_reader(fit_e fit) : fit_(fit), document_(std::make_unique<document>()) {}
json_reader::~json_reader() = default;

outcome_s json_reader::read(std::string_view json, pb::Message *message) {
    return document_->read(json, fit_, message);
}

// "[json.exception.parse_error.101] parse error at line 1 ..."
std::string json_error_text(std::string_view what) {
    const size_t end = what.starts_with('[') ? what.find("] ") : what.npos;
    return std::string(end == what.npos ? what : what.substr(end + 2));
}

outcome_s read_json(std::string_view json, pb::Message *message, fit_e fit) {
    message->Clear();
    std::string padded;
    padded.reserve(json.size() + k_json_padding);
    padded = json;
    return json_reader(fit).read(padded, message);
}

}  // namespace nyxctl
