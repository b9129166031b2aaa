// Messages as JSON and back, by their descriptors.

#pragma once

#include <google/protobuf/message.h>

#include <string>
#include <string_view>

#include "client/core/field_value.h"
#include "client/core/fields.h"
#include "client/core/outcome.h"

namespace nyxctl {

enum class json_style_e {
    people,    // names of the .proto files, values as field_value.h has them, 64-bit numbers as texts
    labelled,  // for people, and what the dictionary calls a value beside it: "link_state_text": "up"
    canonical,  // protobuf's mapping to the letter: bytes in base64, names in lowerCamelCase, addresses as numbers
};

// Sets `message` to one JSON object; for people see json_reader.h. On refusal, also of values that are too wide
// (`fit`), returns a usage failure, and `message` is unspecified.
outcome_s json_to_message(std::string_view json, google::protobuf::Message *message,
                          json_style_e style = json_style_e::people, fit_e fit = fit_e::type);

// Sets `json` to the message, with fields that are zero, without a newline at its end. Only a message that the
// canonical style cannot express (an Any of an unknown type) is a local failure.
outcome_s message_to_json(const google::protobuf::Message &message, std::string *json,
                          json_style_e style = json_style_e::people);

// For people, in one line.
std::string message_json(const google::protobuf::Message &message, json_style_e style = json_style_e::people);

}  // namespace nyxctl
