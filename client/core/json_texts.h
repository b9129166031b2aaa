// The values in a JSON tree that people write otherwise than protobuf does, found along the descriptor of its
// message: bytes, and integers that are addresses.

#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

#include "client/core/json_dom.h"

namespace nyxctl {

// Turns every bytes value that a person wrote into the base64, and every address into the number, that protobuf's
// JSON reader wants. Refuses values that are not accepted, unknown fields, and messages that are not objects: then
// returns false, sets `error` to the path of the field, the value and what is allowed, and `dom` is changed in part.
// All else is left to protobuf.
[[nodiscard]] bool texts_to_canonical(json_t *dom, const google::protobuf::Descriptor *type,
                                      std::string *error);

// Turns every such value that protobuf's JSON writer wrote into its text.
void canonical_to_texts(json_t *dom, const google::protobuf::Descriptor *type);

}  // namespace nyxctl
