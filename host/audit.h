// The record of who changed what.

#pragma once

#include <google/protobuf/message.h>

#include <string>
#include <string_view>

#include "svc/call_hooks.h"

namespace host {

// What audit lines begin with. Words of the form key=value follow, without blanks and control characters in the values.
inline constexpr std::string_view k_audit = "[audit] ";

// One line for a call that changes something, or was refused. `client` is foreign text.
std::string audit_line(const svc::call_facts_s &call, std::string_view role, std::string_view client);

// The first objects of a request, by id or key, and how many there are: "k1:7;k2:00aa,k1:8 count=2". No other value of a
// request gets into it. Empty when the request names no object.
std::string objects_of(const google::protobuf::Message &request);

// Foreign text as one word of at most 128 bytes.
std::string word_of(std::string_view text);

}  // namespace host
