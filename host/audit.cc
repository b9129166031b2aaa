#include "host/audit.h"

#include <fmt/format.h>
#include <google/protobuf/text_format.h>

#include <algorithm>
#include <vector>

#include "base/text.h"

namespace host {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

constexpr size_t k_max_word = 128, k_max_id = 16;
constexpr int k_objects_shown = 3;

constexpr const char *k_grpc_statuses[] = {
    "OK",        "CANCELLED",      "UNKNOWN",           "INVALID_ARGUMENT",   "DEADLINE_EXCEEDED",
    "NOT_FOUND", "ALREADY_EXISTS", "PERMISSION_DENIED", "RESOURCE_EXHAUSTED", "FAILED_PRECONDITION",
    "ABORTED",   "OUT_OF_RANGE",   "UNIMPLEMENTED",     "INTERNAL",           "UNAVAILABLE",
    "DATA_LOSS", "UNAUTHENTICATED"};

std::string hex_of(std::string_view bytes) {
    std::string text;
    for (const unsigned char byte : bytes.substr(0, k_max_id)) {
        text += fmt::format("{:02x}", byte);
    }
    return bytes.size() > k_max_id ? text + "..." : text;
}

std::string text_of(const Message &message, const FieldDescriptor *field, int index);

// The set fields of a key.
std::string key_text(const Message &key) {
    std::vector<const FieldDescriptor *> fields;
    key.GetReflection()->ListFields(key, &fields);
    std::string text;
    for (const auto *field : fields) {
        if (!field->is_repeated()) {
            text += (text.empty() ? "" : ";") + field->name() + ":" + text_of(key, field, -1);
        }
    }
    return text.empty() ? "0" : text;
}

// An object by the field that names it: of itself, or of its spec.
std::string object_text(const Message &object) {
    const auto *type = object.GetDescriptor();
    for (const char *name : {"id", "key", "spec"}) {
        const auto *field = type->FindFieldByName(name);
        if (field && !field->is_repeated()) {
            return text_of(object, field, -1);
        }
    }
    return type->name().ends_with("_key_t") ? key_text(object) : "";
}

std::string text_of(const Message &message, const FieldDescriptor *field, int index) {
    const auto *reflection = message.GetReflection();
    std::string text;
    if (field->message_type()) {
        return object_text(index < 0 ? reflection->GetMessage(message, field)
                                     : reflection->GetRepeatedMessage(message, field, index));
    }
    if (field->type() == FieldDescriptor::TYPE_BYTES) {
        return hex_of(index < 0 ? reflection->GetStringReference(message, field, &text)
                                : reflection->GetRepeatedStringReference(message, field, index, &text));
    }
    google::protobuf::TextFormat::PrintFieldValueToString(message, field, index, &text);
    return text;
}

// The list that a request consists of.
const FieldDescriptor *list_of(const Message &request) {
    const auto *type = request.GetDescriptor();
    for (int i = 0; i < type->field_count(); i++) {
        if (type->field(i)->is_repeated()) {
            return type->field(i);
        }
    }
    return nullptr;
}

}  // namespace

std::string objects_of(const Message &request) {
    const auto *list = list_of(request);
    if (!list) {
        return object_text(request);
    }
    const int count = request.GetReflection()->FieldSize(request, list);
    std::string text;
    for (int i = 0; i < std::min(count, k_objects_shown); i++) {
        text += (i == 0 ? "" : ",") + word_of(text_of(request, list, i));
    }
    return fmt::format("{} count={}", text, count);
}

std::string word_of(std::string_view text) {
    std::string word(base::without_cut_character(text.substr(0, k_max_word)));
    word = base::without_controls(base::to_utf8(word));
    std::ranges::replace_if(
        word, [](char c) { return c == ' ' || c == '"'; }, '?');
    return word;
}

std::string audit_line(const svc::call_facts_s &call, std::string_view role, std::string_view client) {
    const std::string objects = call.request ? objects_of(*call.request) : "";
    const auto code = static_cast<size_t>(call.status.error_code());
    const std::string outcome = call.status.ok()                    ? types::ApiStatus_Name(call.api_status)
                                : code < std::size(k_grpc_statuses) ? k_grpc_statuses[code]
                                                                    : "";
    return fmt::format("{}method={}/{} role={} client={} outcome={} duration_us={}{}{}", k_audit,
                       call.method->service()->full_name(), call.method->name(), role, word_of(client),
                       outcome.empty() ? "?" : outcome,
                       std::chrono::duration_cast<std::chrono::microseconds>(call.duration).count(),
                       objects.empty() ? "" : " objects=", objects);
}

}  // namespace host
