// How large a request may be, for those who take it and those who send it.

#pragma once

#include <cstddef>

namespace base {

inline constexpr size_t k_max_grpc_request_size =
    64 * 1024 * 1024;                                           // bytes of a message, as our host sets it
inline constexpr size_t k_max_socket_request_size = 1'048'576;  // bytes that the agent reads

}  // namespace base
