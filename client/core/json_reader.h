// JSON read straight into messages, value by value.

#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>

#include "client/core/field_value.h"
#include "client/core/outcome.h"

namespace nyxctl {

// Objects and lists within each other; deeper JSON is refused.
constexpr size_t k_json_depth_max = 100;

// Bytes after a text that json_reader may read, whatever they are.
constexpr size_t k_json_padding = 64;

// Reads one JSON object after the other. Keeps the memory of the largest. For one thread.
class json_reader {
 public:
    explicit json_reader(fit_e fit = fit_e::type);
    ~json_reader();

    // Sets those fields of `message` that a JSON object names, in either spelling; the others stay. A message that
    // field_value.h knows as one value may be that text; null leaves a field as it is. k_json_padding bytes after
    // `json` must be readable. On refusal (syntax, a field given twice, an unknown field, a value that does not fit,
    // depth) returns a usage failure that names the field by its path, and `message` is unspecified.
    outcome_s read(std::string_view json, google::protobuf::Message *message);

 private:
    class document;

    const fit_e fit_;
    const std::unique_ptr<document> document_;
};

// Sets an empty `message` to one JSON object in the same way; nothing after it has to be readable.
outcome_s read_json(std::string_view json, google::protobuf::Message *message, fit_e fit = fit_e::type);

// The parser's message without the tag at its beginning.
std::string json_error_text(std::string_view what);

}  // namespace nyxctl
