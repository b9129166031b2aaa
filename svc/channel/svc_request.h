// Receives one service request from a connection.

#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/unique_fd.h"

namespace svc {

// A request's bytes are at most this many; what is beyond is not read.
inline constexpr size_t k_max_request_size = 1'048'576;

// Memory for one request, zero-filled. A mapping of its own costs one page fault for a small request whatever
// the process's allocator does; a megabyte from malloc costs up to hundreds.
class receive_buffer {
 public:
    receive_buffer();
    ~receive_buffer();
    receive_buffer(const receive_buffer &) = delete;
    receive_buffer &operator=(const receive_buffer &) = delete;

    explicit operator bool() const { return data_ != nullptr; }
    uint8_t *data() const { return data_; }

 private:
    uint8_t *data_;
};

struct received_s {
    ssize_t size;           // bytes received, 0 at the end of the stream, negative on failure
    base::unique_fd io_fd;  // the descriptor passed along; none when there was none
};

// Receives once. A peer may pass any number of descriptors: the first one is taken, no other is kept open.
received_s receive_once(int sock_fd, const receive_buffer &buffer);

}  // namespace svc
