// Whether an agent was built from the same .proto files as this client.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nyxctl {

// The system's own .proto files, compiled in: "nyx/port.proto".
std::vector<std::string> schema_files();

// Whether a google.protobuf.FileDescriptorProto from elsewhere defines the same as the compiled-in file, comments
// aside. Bytes that are no such message differ. `file` must be compiled in.
bool is_same_schema(const std::string &file, std::string_view descriptor_bytes);

}  // namespace nyxctl
