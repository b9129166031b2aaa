// JSON read straight into messages, value by value, without a tree.

#pragma once

#include <google/protobuf/message.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "client/core/field_value.h"
#include "client/core/outcome.h"

namespace nyxctl {

// Objects and lists within each other; deeper JSON is refused.
constexpr size_t k_json_depth_max = 100;

// Sets `message` to one JSON object, with field names in either spelling. A message that field_value.h
// knows as one value may be that text; null leaves a field at its default. On refusal (syntax, a field set twice, an
// unknown field, a value that does not fit, depth) returns a usage failure that names the field by its path, and
// `message` is unspecified.
outcome_s read_json(std::string_view json, google::protobuf::Message *message, fit_e fit = fit_e::type);

// Gives `take` each message of a JSON list of objects as soon as it is read, and keeps none. Failures: those of
// read_json(), whatever was taken before, and what `take` returns, which ends the reading.
using take_message_t = std::function<outcome_s(std::unique_ptr<google::protobuf::Message>)>;
outcome_s read_json_list(std::string_view json, const google::protobuf::Descriptor *type,
                         const take_message_t &take, fit_e fit = fit_e::type);

// The parser's message without the tag at its beginning.
std::string json_error_text(std::string_view what);

}  // namespace nyxctl
