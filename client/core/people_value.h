// Fields of messages as people say them.

#pragma once

#include <google/protobuf/message.h>

#include <string>

#include "client/core/json_dom.h"

namespace nyxctl {

// The value of a field, the whole list of a repeated one: integers, truth values and texts as JSON has them, bytes and
// addresses as bytes_text.h and number_text.h have them, enumerators without the prefix that all of their enumeration
// share and in lower case ("up" for STATE_UP, the number for an unknown one), a types.IPAddress as "10.0.0.1", a
// types.IPPrefix as "10.0.0.0/24" (both null without a family), another message as an object of its fields.
json_t people_value(const google::protobuf::Message &message, const google::protobuf::FieldDescriptor *field);

// An enumerator as people say it, and the enumerator that a person means: by that text, by its full name in any case,
// or by its number. Null when there is none.
std::string enumerator_text(const google::protobuf::EnumValueDescriptor *value);
const google::protobuf::EnumValueDescriptor *enumerator_from_text(
    const google::protobuf::EnumDescriptor *type, std::string_view text);

// The value below a dotted path of field names, "status.link_status.link_state"; null where a message on the way is
// absent. The path must exist in the descriptor: it is the program's own.
json_t value_at(const google::protobuf::Message &message, std::string_view path);

}  // namespace nyxctl
