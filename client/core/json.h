// Messages as JSON and back. Works on descriptors alone, also inside google.protobuf.Any of any message in the
// process.

#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>

#include "client/core/outcome.h"

namespace nyxctl {

// Objects and arrays within each other; deeper JSON is refused.
constexpr size_t k_json_depth_max = 100;

enum class json_style_e {
    people,  // protobuf's mapping, but bytes are texts of bytes_text.h and addresses in integers of number_text.h
    canonical,  // protobuf's mapping to the letter: bytes in base64, names in lowerCamelCase, addresses as numbers
};

// An empty message of a type of the generated pool.
std::unique_ptr<google::protobuf::Message> new_message(const google::protobuf::Descriptor *type);

// Fills `message` from one JSON object, with field names in either spelling. On refusal (syntax, a key twice, an
// unknown field, a value that does not fit, depth) returns a usage failure that names the field by its path, and
// `message` is unspecified.
outcome_s json_to_message(std::string_view json, google::protobuf::Message *message,
                          json_style_e style = json_style_e::people);

// Sets `json` to the message in several lines of two-space steps, without a newline at its end, with fields that are
// zero and, for people, with the field names of the .proto files. A message that JSON cannot express (an Any
// of an unknown type) is a local failure.
outcome_s message_to_json(const google::protobuf::Message &message, std::string *json,
                          json_style_e style = json_style_e::people);

}  // namespace nyxctl
