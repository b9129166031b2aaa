#include "client/core/status_fields.h"

#include <fmt/format.h>

#include <vector>

#include "client/core/fields.h"
#include "nyx/agent.pb.h"
#include "nyx/types/status.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

std::optional<std::string> failed_value(const pb::Message &message, const pb::FieldDescriptor *field,
                                        int index) {
    if (field->message_type()) {
        const bool of_other_calls = field->message_type() == nyx::AgentOutcome::descriptor();
        return of_other_calls ? std::nullopt : failed_api_status(message_at(message, field, index));
    }
    if (field->name() != "api_status" || field->enum_type() != types::ApiStatus_descriptor()) {
        return {};
    }
    const pb::Reflection &get = *message.GetReflection();
    const int number = field->is_repeated() ? get.GetRepeatedEnumValue(message, field, index)
                                            : get.GetEnumValue(message, field);
    return number == types::API_STATUS_OK ? std::nullopt : std::optional(api_status_text(number));
}

}  // namespace

std::string api_status_text(int number) {
    const std::string &name = types::ApiStatus_Name(number);
    return name.empty() ? fmt::format("api_status {}", number) : name;
}

std::optional<std::string> failed_api_status(const pb::Message &response) {
    // Lists only what is set; an api_status that is not is API_STATUS_OK.
    std::vector<const pb::FieldDescriptor *> fields;
    response.GetReflection()->ListFields(response, &fields);
    for (const pb::FieldDescriptor *field : fields) {
        for (int i = 0; i < element_count(response, field); i++) {
            if (auto failed = failed_value(response, field, i)) {
                return failed;
            }
        }
    }
    return {};
}

}  // namespace nyxctl
