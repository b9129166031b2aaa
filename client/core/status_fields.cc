#include "client/core/status_fields.h"

#include <vector>

#include "nyx/types/status.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

using found_t = std::optional<std::string>;

bool is_api_status(const pb::FieldDescriptor *field) {
    return field->name() == "api_status" && field->enum_type() == types::ApiStatus_descriptor();
}

found_t failed_value(const pb::Message &message, const pb::FieldDescriptor *field, int index) {
    const pb::Reflection *reflection = message.GetReflection();
    const int number = index < 0 ? reflection->GetEnumValue(message, field)
                                 : reflection->GetRepeatedEnumValue(message, field, index);
    return number == types::API_STATUS_OK ? found_t() : api_status_text(number);
}

found_t failed_below(const pb::Message &message, const pb::FieldDescriptor *field, int index) {
    const pb::Reflection *reflection = message.GetReflection();
    return failed_api_status(index < 0 ? reflection->GetMessage(message, field)
                                       : reflection->GetRepeatedMessage(message, field, index));
}

found_t failed_in_field(const pb::Message &message, const pb::FieldDescriptor *field) {
    const bool is_message = field->message_type() != nullptr;
    if (!is_message && !is_api_status(field)) {
        return {};
    }
    const auto look = is_message ? failed_below : failed_value;
    if (!field->is_repeated()) {
        return look(message, field, -1);
    }
    const int size = message.GetReflection()->FieldSize(message, field);
    for (int i = 0; i < size; ++i) {
        if (found_t failed = look(message, field, i)) {
            return failed;
        }
    }
    return {};
}

}  // namespace

std::string api_status_text(int number) {
    const std::string &name = types::ApiStatus_Name(number);
    return name.empty() ? "api_status " + std::to_string(number) : name;
}

std::optional<std::string> failed_api_status(const pb::Message &response) {
    // Only set fields are listed; an api_status that is not is API_STATUS_OK.
    std::vector<const pb::FieldDescriptor *> fields;
    response.GetReflection()->ListFields(response, &fields);
    for (const pb::FieldDescriptor *field : fields) {
        if (found_t failed = failed_in_field(response, field)) {
            return failed;
        }
    }
    return {};
}

}  // namespace nyxctl
