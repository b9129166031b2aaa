// How large a request may be, for those who take it and those who send it.

#pragma once

#include <cstddef>

namespace base {

// Bytes of a message, as our host sets it: 80,000 entries of the table with the most fields, or 150,000 of its keys. What
// a read answers can be hundreds of times as long as what it is asked.
inline constexpr size_t k_max_grpc_request_size = 16 * 1024 * 1024;
// Bytes that the service request thread receives; the rest of a longer request is not read.
inline constexpr size_t k_max_socket_request_size = 1'048'576;

}  // namespace base
