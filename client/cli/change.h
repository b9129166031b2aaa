// What the commands that change something have in common.

#pragma once

#include <google/protobuf/message.h>

#include <span>
#include <string>

#include "client/core/options.h"
#include "client/core/outcome.h"

namespace nyxctl {

using words_t = std::span<const std::string>;

// Sets the fields that set_field() finds for `words` in one of the messages. Values that the agent's records would cut
// are refused.
outcome_s set_fields(std::span<google::protobuf::Message *const> messages, words_t words);
outcome_s set_fields(google::protobuf::Message *message, words_t words);

// Calls a method by its full name, and checks the api_status of the response.
outcome_s call(const global_options_s &global, const std::string &method,
               const google::protobuf::Message &request, google::protobuf::Message *response);

// Calls a method that changes something. Prints {"status": "ok"} with -j, else nothing.
outcome_s change(const global_options_s &global, const std::string &method,
                 const google::protobuf::Message &request);

// Adds what to do to a refusal of the agent.
outcome_s with_hint(outcome_s outcome, const std::string &hint);

}  // namespace nyxctl
