// What an agent says about its own services and messages.

#pragma once

#include <map>
#include <span>
#include <string>
#include <vector>

#include "client/core/options.h"
#include "client/core/outcome.h"

namespace nyxctl {

struct reflection_s {
    std::vector<std::string> services;         // full names
    std::map<std::string, std::string> files;  // serialised google.protobuf.FileDescriptorProto by path
};

// Asks by gRPC server reflection, at most for the timeout, for the services and for the files of these paths.
// `answer` is set on success alone; files that the agent does not have are missing in it, and files that they
// import are there too. Failures are those of grpc_call(), with the exit code for UNIMPLEMENTED when the agent offers
// no reflection.
outcome_s ask_reflection(const global_options_s &options, std::span<const std::string> files,
                         reflection_s *answer);

}  // namespace nyxctl
