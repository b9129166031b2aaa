// What the commands that change something have in common.

#pragma once

#include <google/protobuf/message.h>

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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

// Reads the spec of a "port" or an "interface", found as find_object() does.
outcome_s read_spec(const global_options_s &global, std::string_view kind, const std::string &given,
                    google::protobuf::Message *spec);

// The rule of all settings that the agent replaces as a whole. `spec`, in `request`, is what the agent has: puts `words`
// over it, where lists are replaced, calls the method, and prints the fields that differ, old -> new. `parts_of` says which
// messages of a spec have the fields of the words.
using parts_t = std::vector<google::protobuf::Message *>;
outcome_s change_settings(const global_options_s &global, const std::string &method,
                          const google::protobuf::Message &request, google::protobuf::Message *spec,
                          const std::function<parts_t(google::protobuf::Message *spec)> &parts_of,
                          words_t words);

// Adds what to do to a refusal of the agent.
outcome_s with_hint(outcome_s outcome, const std::string &hint);

}  // namespace nyxctl
