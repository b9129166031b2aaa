// The comments of the .proto files, which generated code does not have.

#pragma once

#include <span>

namespace nyxctl {

// A google.protobuf.FileDescriptorSet: of each file only name and source_code_info. Read when it is needed, so that it
// costs other commands nothing.
extern const std::span<const unsigned char> k_contract_comments;

}  // namespace nyxctl
