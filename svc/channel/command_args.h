// Argument messages of debug commands as the debug library's command context.

#pragma once

#include <optional>
#include <string_view>

#include "agent_api/debug_command.h"
#include "google/protobuf/any.pb.h"

// The type name of a packed message: all that follows the first "/" of its type URL; none without a "/".
std::optional<std::string_view> any_type_name(const google::protobuf::Any &any);

// Copies the arguments of a command into a zeroed context and sets args_valid. Arguments of an unknown type,
// or without a type name, leave the context as it was. Returns false when the arguments can't be parsed as
// what they are said to be; the context is then as it was.
bool command_args_to_ctxt(const google::protobuf::Any &args, cmd_ctxt_s *ctxt);
