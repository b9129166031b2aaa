// Values of fields as people write them on the command line.

#pragma once

#include <google/protobuf/message.h>

#include <string>
#include <string_view>

namespace nyxctl {

// Each returns "", or the value and what is allowed instead; the message is then unchanged.

// Sets a field that is no message; `index` counts for lists alone, and their size appends.
[[nodiscard]] std::string set_plain_value(google::protobuf::Message *message,
                                          const google::protobuf::FieldDescriptor *field, int index,
                                          std::string_view value);

// Sets a types.IPAddress or types.IPPrefix; any other message is refused with the names of its fields.
[[nodiscard]] std::string set_message_value(google::protobuf::Message *message, std::string_view value);

// "none, up, down"
std::string enumerator_texts(const google::protobuf::EnumDescriptor *type);

}  // namespace nyxctl
