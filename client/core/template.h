// Requests to fill in.

#pragma once

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "client/core/outcome.h"

namespace nyxctl {

struct template_s {
    std::string json;                  // what json_to_message() takes for the type
    std::vector<std::string> choices;  // "request[0].ifinfo: uplink_spec, or instead of it l3_if_spec, ..."
};

// Every field of the type at its default: zeros, enumerations at their first enumerator, empty texts and lists, a
// list of messages with one element, a oneof with its first member.
template_s message_template(const google::protobuf::Descriptor *type);

// Sets `type` to the message of that name, or to the request of the method.
outcome_s find_template_type(std::string_view name, const google::protobuf::Descriptor **type);

}  // namespace nyxctl
