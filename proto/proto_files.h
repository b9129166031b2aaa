// What this library holds, for programs that work on descriptors instead of on generated classes.

#pragma once

#include <span>

namespace nyx {

// The paths of all .proto files in this library, as DescriptorPool::FindFileByName takes them.
std::span<const char *const> proto_files();

}  // namespace nyx
