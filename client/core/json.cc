#include "client/core/json.h"

#include <fmt/format.h>
#include <google/protobuf/util/json_util.h>

#include "client/core/bytes_text.h"
#include "client/core/field_value.h"
#include "client/core/json_reader.h"
#include "client/core/labels.h"
#include "client/core/message_plan.h"
#include "client/core/record_width.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

std::string status_text(const pb::util::Status &status) {
    return std::string(status.message().data(), status.message().size());
}

outcome_s canonical_to_message(std::string_view json, pb::Message *message) {
    const pb::util::Status status = pb::util::JsonStringToMessage({json.data(), json.size()}, message);
    return status.ok() ? outcome_s()
                       : usage_failure(fmt::format("JSON of {0}: {1}; see nyxctl describe {0}",
                                                   message->GetTypeName(), status_text(status)));
}

outcome_s message_to_canonical(const pb::Message &message, std::string *json) {
    pb::util::JsonPrintOptions options;
    options.always_print_primitive_fields = true;
    std::string text;
    const pb::util::Status status = pb::util::MessageToJsonString(message, &text, options);
    if (!status.ok()) {
        return local_failure(
            fmt::format("cannot show {} as JSON: {}", message.GetTypeName(), status_text(status)));
    }
    *json = indented(text);
    return {};
}

void write_message(const pb::Message &message, json_style_e style, std::string *json);

void write_element(const pb::Message &message, const pb::FieldDescriptor *field, int index,
                   json_style_e style, std::string *json) {
    if (field->message_type()) {
        write_message(message_at(message, field, index), style, json);
        return;
    }
    const value_s value = element_value(message, field, index);
    // As protobuf has it: many readers keep only 53 bits of a number.
    const bool is_wide = field->cpp_type() == pb::FieldDescriptor::CPPTYPE_INT64 ||
                         field->cpp_type() == pb::FieldDescriptor::CPPTYPE_UINT64;
    *json += json_text(is_wide ? cell_text(value) : value);
}

// As write_element(), for numbers and bytes.
void write_plainly(const pb::Message &message, const field_plan_s &plan, std::string *json) {
    if (plan.plain == PLAIN_BYTES) {
        std::string scratch;
        const auto &bytes = plan.reflection->GetStringReference(message, plan.field, &scratch);
        *json += '"';
        *json += bytes_to_text(bytes, plan.bytes_form);
        *json += '"';
        return;
    }
    const bool is_wide = plan.plain == PLAIN_UINT64;
    const fmt::format_int digits(plan.number(message));
    json->append(is_wide ? "\"" : "").append(digits.data(), digits.size()).append(is_wide ? "\"" : "");
}

void write_label(const pb::Message &message, const pb::FieldDescriptor *field, std::string *json) {
    const value_s value = field->is_repeated() ? value_s() : labelled(field_value(message, field), field);
    if (!value.shown().empty()) {
        *json += fmt::format(",\"{}_text\":{}", field->name(), json_text(value_s(value.shown())));
    }
}

void write_field(const pb::Message &message, const field_plan_s &plan, json_style_e style,
                 std::string *json) {
    const pb::FieldDescriptor *field = plan.field;
    *json += json->back() == '{' ? "" : ",";
    *json += plan.json_name;
    if (plan.plain != PLAIN_NONE && plan.number_form == types::NUMBER_TEXT_DECIMAL) {
        return write_plainly(message, plan, json);
    }
    *json += field->is_repeated() ? "[" : "";
    for (int i = 0; i < element_count(message, field); i++) {
        *json += i > 0 ? "," : "";
        write_element(message, field, i, style, json);
    }
    *json += field->is_repeated() ? "]" : "";
}

void write_message(const pb::Message &message, json_style_e style, std::string *json) {
    *json += '{';
    for (const field_plan_s &plan : plan_of(message.GetDescriptor()).fields) {
        // Of a oneof only the member that is set; absent messages are left out as well.
        if (!plan.field->has_presence() || plan.reflection->HasField(message, plan.field)) {
            write_field(message, plan, style, json);
            if (style == json_style_e::labelled) {
                write_label(message, plan.field, json);
            }
        }
    }
    *json += '}';
}

}  // namespace

outcome_s json_to_message(std::string_view json, pb::Message *message, json_style_e style, fit_e fit) {
    if (style != json_style_e::canonical) {
        return read_json(json, message, fit);
    }
    outcome_s outcome = canonical_to_message(json, message);
    return outcome.ok() && fit == fit_e::record ? check_widths(*message) : outcome;
}

outcome_s message_to_json(const pb::Message &message, std::string *json, json_style_e style) {
    if (style == json_style_e::canonical) {
        return message_to_canonical(message, json);
    }
    *json = indented(message_json(message, style));
    return {};
}

std::string message_json(const pb::Message &message, json_style_e style) {
    std::string json;
    write_message(message, style, &json);
    return json;
}

}  // namespace nyxctl
