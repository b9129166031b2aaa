// Finds one object of the agent by its id, name, number or address.

#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/core/options.h"
#include "client/core/outcome.h"
#include "client/view/views.h"

namespace nyxctl {

struct found_object_s {
    std::unique_ptr<google::protobuf::Message> response;  // of the view's method
    const google::protobuf::Message *object = nullptr;    // in `response`
};

// Reads all objects of the view and finds the one that `given` means: a UUID, its hexadecimal digits, or fewer of them
// as a short id (followed by zeros, else the beginning of only one id), or a text of its handles (a name, a number, an address) that no other object has. Unknown or
// ambiguous ones end with NYXCTL_EXIT_API_STATUS, and the text says what there is. When the agent's own api_status is
// not API_STATUS_OK, that is the outcome, and `found` is set to what came along.
outcome_s find_object(const global_options_s &global, const element_view_s &view, const std::string &given,
                      found_object_s *found);

// What the objects of a kind are called that the agent has now; only what begins with `begin`, and of each object only
// one name when that is empty. Nothing when the agent does not answer.
std::vector<std::string> object_names(const global_options_s &global, std::string_view kind,
                                      const std::string &begin);

// The id of a "port", "interface" or "lif", found in that way.
outcome_s find_id(const global_options_s &global, std::string_view kind, const std::string &given,
                  std::string *id);

}  // namespace nyxctl
