// The outcome inside a response.

#pragma once

#include <google/protobuf/message.h>

#include <optional>
#include <string>

namespace nyxctl {

// The first value of a field named api_status and of type types.ApiStatus, singular or repeated, at any level
// of the message, that is not API_STATUS_OK: "API_STATUS_ERROR", or "api_status 17" for a number without a
// name. The outcomes of earlier calls in nyx.AgentGetResponse do not count.
std::optional<std::string> failed_api_status(const google::protobuf::Message &response);

// The name of the number, or "api_status 17".
std::string api_status_text(int number);

}  // namespace nyxctl
