// Values that the agent would cut silently, because its records have less room for them than the messages.

#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/core/outcome.h"

namespace nyxctl {

// The largest number that the field of the record holds; UINT64_MAX for a field without a width.
uint64_t largest_number(const google::protobuf::FieldDescriptor *field);

// What is wrong with a number or byte string for this field, "70000 does not fit in 2 bytes, largest is 65535; --cut
// sends it anyway"; nullopt when it fits or the field has no width.
std::optional<std::string> width_error(const google::protobuf::FieldDescriptor *field, uint64_t number);
std::optional<std::string> width_error(const google::protobuf::FieldDescriptor *field,
                                       std::string_view bytes);

// Looks at all fields of the message. The first value that would be cut is a usage failure with the path of its field:
// "request[0].key.k1: 70000 does not fit ...".
outcome_s check_widths(const google::protobuf::Message &message);

}  // namespace nyxctl
