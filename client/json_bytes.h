// The bytes fields in a JSON tree, found along the descriptor of its message.

#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

#include "client/json_dom.h"

namespace nyxctl {

// Turns every bytes value that a person wrote into the base64 that protobuf's JSON reader wants. Refuses
// bytes values that are not accepted, unknown fields, and messages that are not objects: then returns false,
// sets `error` to the path of the field, the value and what is allowed, and `dom` is changed in part. All
// else is left to protobuf.
[[nodiscard]] bool texts_to_base64(json_t *dom, const google::protobuf::Descriptor *type, std::string *error);

// Turns every base64 value that protobuf's JSON writer wrote for a bytes field into its text.
void base64_to_texts(json_t *dom, const google::protobuf::Descriptor *type);

}  // namespace nyxctl
