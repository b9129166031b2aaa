// Fields of a message from words of the command line: request[0].host_if_spec.name=h1.

#pragma once

#include <google/protobuf/message.h>

#include <span>
#include <string_view>

#include "client/core/field_value.h"
#include "client/core/outcome.h"

namespace nyxctl {

// Whether the word is of the form PATH=VALUE and not JSON, @FILE or "-".
bool is_field_word(std::string_view word);

// Sets one field. PATH is names divided by dots, in either spelling of protobuf, lists with an index:
// request[0].spec.k1. The index of the first element that the list does not have appends it; a list of plain
// values without an index appends too. VALUE is what set_from_text() takes. Other messages are set by their fields. A
// second member of a oneof is refused, as it would remove the first. Refusals are usage failures that name the path,
// the value, what is allowed, and the nearest names; `message` is then unspecified.
outcome_s set_field(google::protobuf::Message *message, std::string_view word, fit_e fit = fit_e::type);

// The same for fields of several messages: the first name of PATH decides which of them has it.
outcome_s set_field(std::span<google::protobuf::Message *const> messages, std::string_view word,
                    fit_e fit = fit_e::type);

}  // namespace nyxctl
